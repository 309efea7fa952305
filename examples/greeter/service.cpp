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
        // No watcher is called or let go of under the lock: it may be an object of this process,
        // and call back.
        Watchers watchers;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            greeting->count = ++count_;
            watchers = watchers_;
        }
        greeting->name = name;
        greeting->text = "Hello, " + name + "!";
        for (const auto& watcher : watchers) {
            // The interface is oneway: no call waits, not even for a watcher that hangs. A call
            // that fails shows that the watcher has gone, or has not listened for very long.
            if (!watcher->onGreeted(*greeting).isOk()) Forget(watcher);
        }
        return ScopedAStatus::ok();
    }

    ScopedAStatus watch(const std::shared_ptr<IWatcher>& watcher) override {
        std::lock_guard<std::mutex> lock(mutex_);
        watchers_.push_back(watcher);
        return ScopedAStatus::ok();
    }

  private:
    using Watchers = std::vector<std::shared_ptr<IWatcher>>;

    void Forget(const std::shared_ptr<IWatcher>& watcher) {
        std::lock_guard<std::mutex> lock(mutex_);
        std::erase(watchers_, watcher);  // the caller has a reference, too
    }

    std::mutex mutex_;
    int32_t count_ = 0;
    Watchers watchers_;
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
