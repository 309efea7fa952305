// A service: greets whoever asks, until Ctrl-C.
#include <aidl/example/greeter/BnGreeter.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>

#include <cstdio>
#include <memory>
#include <mutex>
#include <vector>

using aidl::example::greeter::BnGreeter;
using aidl::example::greeter::Greeting;
using aidl::example::greeter::IWatcher;
using ndk::ScopedAStatus;

// BnGreeter is generated from IGreeter.aidl. Its methods are called on threads of the pool, several
// at a time.
class Greeter : public BnGreeter {
  public:
    ScopedAStatus greet(const std::string& name, Greeting* greeting) override {
        if (name.empty()) {
            return ScopedAStatus::fromExceptionCodeWithMessage(EX_ILLEGAL_ARGUMENT, "who are you?");
        }
        std::lock_guard<std::mutex> lock(mutex_);
        greeting->name = name;
        greeting->text = "Hello, " + name + "!";
        greeting->count = ++count_;
        // The interface is oneway: no call waits, not even for a watcher that hangs. A call that
        // fails shows that the watcher has gone, or has not listened for very long.
        std::erase_if(watchers_, [&](const std::shared_ptr<IWatcher>& watcher) {
            return !watcher->onGreeted(*greeting).isOk();
        });
        return ScopedAStatus::ok();
    }

    ScopedAStatus watch(const std::shared_ptr<IWatcher>& watcher) override {
        std::lock_guard<std::mutex> lock(mutex_);
        watchers_.push_back(watcher);
        return ScopedAStatus::ok();
    }

  private:
    std::mutex mutex_;
    int32_t count_ = 0;
    std::vector<std::shared_ptr<IWatcher>> watchers_;
};

int main() {
    const std::shared_ptr<Greeter> greeter = ndk::SharedRefBase::make<Greeter>();
    // Waits for the service manager if none runs yet.
    if (AServiceManager_addService(greeter->asBinder().get(), "example.greeter") != EX_NONE) {
        std::fprintf(stderr, "cannot publish example.greeter\n");
        return 1;
    }
    std::printf("ready\n");
    std::fflush(stdout);
    ABinderProcess_startThreadPool();
    ABinderProcess_joinThreadPool();
}
