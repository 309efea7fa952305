// A unit of work that somebody else runs. Its sole owner is a std::unique_ptr<Callable>, which
// passes from thread to thread; a task has no lock, so one thread uses it at a time.

#pragma once

#include <memory>
#include <type_traits>
#include <utility>

namespace aidl::android::hardware::biometrics {

class Callable {
  public:
    template <typename F>
    class AnyFuncWrapper;

    // Runs the work.
    virtual void operator()() = 0;

    // Releases what the work holds, whether or not it has run.
    virtual ~Callable() = default;

    // A task that holds `function` and calls it without arguments. One allocation; what a temporary
    // has captured is moved, not copied.
    template <typename F>
    static std::unique_ptr<Callable> wrap(F&& function) {
        return std::make_unique<AnyFuncWrapper<std::decay_t<F>>>(std::forward<F>(function));
    }
};

template <typename F>
class Callable::AnyFuncWrapper : public Callable {
  public:
    explicit AnyFuncWrapper(F function) : function_(std::move(function)) {}

    void operator()() override { function_(); }

  private:
    F function_;
};

}  // namespace aidl::android::hardware::biometrics
