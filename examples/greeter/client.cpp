// A client: asks for a greeting and waits until it was heard of as a watcher, too.
#include <aidl/example/greeter/BnWatcher.h>
#include <aidl/example/greeter/IGreeter.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>

#include <cstdio>
#include <semaphore>

using aidl::example::greeter::BnWatcher;
using aidl::example::greeter::Greeting;
using aidl::example::greeter::IGreeter;
using ndk::ScopedAStatus;

// Called by the service, on a thread of this process's pool.
class Watcher : public BnWatcher {
  public:
    explicit Watcher(std::string name) : name_(std::move(name)) {}

    ScopedAStatus onGreeted(const Greeting& greeting) override {
        std::printf("heard: greeting %d is for %s\n", greeting.count, greeting.name.c_str());
        if (greeting.name == name_) heard_.release();
        return ScopedAStatus::ok();
    }
    void WaitUntilHeard() { heard_.acquire(); }

  private:
    const std::string name_;
    std::counting_semaphore<> heard_{0};
};

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: greeter_client NAME\n");
        return 2;
    }
    // Callbacks arrive while the pool runs.
    ABinderProcess_startThreadPool();
    // Waits for the service if it is not published yet. fromBinder gives null for another
    // interface.
    const ndk::SpAIBinder binder(AServiceManager_waitForService("example.greeter"));
    const std::shared_ptr<IGreeter> greeter = IGreeter::fromBinder(binder);
    if (greeter == nullptr) return 1;

    const std::shared_ptr<Watcher> watcher = ndk::SharedRefBase::make<Watcher>(argv[1]);
    Greeting greeting;
    ScopedAStatus status = greeter->watch(watcher);
    if (status.isOk()) status = greeter->greet(argv[1], &greeting);
    if (!status.isOk()) {
        std::fprintf(stderr, "no greeting: %s\n", status.getDescription().c_str());
        return 1;
    }
    watcher->WaitUntilHeard();
    std::printf("answer: %s\n", greeting.text.c_str());
}
