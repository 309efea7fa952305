// The hub, or the bare relay, as one more system of the harness that compares message systems. One
// source, built once per system:
//
//   PEER_BROKER    kHub: the daemon as it is shipped. kRelay: the bare relay of bare_relay.cpp.
//   PEER_LOG       1: everything is logged, as shipped, into a file. 0: all tags silenced.
//   PEER_THREADS   how many threads push once throughput is what counts; 1 is the caller itself.
//
// The kit ends each process by _exit, so nothing here is ever taken down.

#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "clients.h"
#include "peerkit.h"
#include "pushers.h"

namespace {

constexpr auto kBroker = peers::Broker::PEER_BROKER;
constexpr bool kIsHub = kBroker == peers::Broker::kHub;
constexpr bool kLogs = PEER_LOG;
constexpr size_t kThreads = PEER_THREADS;

// What every process of a run shares. The folder of the layer is made by the first that needs it.
void Prepare(const Args& args) {
    setenv("BINDER_HOST_DIR", (args.dir + "/run").c_str(), 1);
    unsetenv("BINDER_HOST_END_FD");
    if (kLogs)
        unsetenv("ANDROID_LOG_TAGS");
    else
        setenv("ANDROID_LOG_TAGS", "*:S", 1);
}

// Its standard error, which is where the layer logs to, goes to `log`.
pid_t Start(std::vector<std::string> command, const std::string& log) {
    command.insert(command.begin(), {"/bin/sh", "-c", "exec \"$@\" 2>\"$0\"", log});
    return start_daemon(command);
}

// The most that the process has had resident so far, as the kernel writes it.
std::string PeakMemory(pid_t pid) {
    return first_line_of("grep VmHWM /proc/" + std::to_string(pid) +
                         "/status | tr -s '[:blank:]' ' '");
}

void WaitForEndOfInput() {
    char ignored[64];
    while (read(STDIN_FILENO, ignored, sizeof(ignored)) > 0) {
    }
}

void Send(const peers::Push& push, peers::Message& message, const void* data, size_t size) {
    const auto status = push(message.Fill(data, size));
    if (!status.isOk()) fail("push: " + status.getDescription());
}

class Producer : public Publisher {
  public:
    Producer(peers::Push push, int signal)
            : push_(std::move(push)), signal_(signal), message_(signal) {}

    void publish(const void* data, size_t len) override {
        if (pushers_)
            pushers_->Add(data, len);
        else
            Send(push_, message_, data, len);
    }

    void prefer_throughput() override {
        if (kThreads == 1) return;
        pushers_.emplace(kThreads, [this]() -> peers::Pushers::Send {
            return [this, message = std::make_shared<peers::Message>(signal_)](const auto& event) {
                Send(push_, *message, event.data(), event.size());
            };
        });
    }

    void flush() override {
        if (pushers_) pushers_->Drain();
    }

  private:
    const peers::Push push_;
    const int signal_;
    peers::Message message_;
    std::optional<peers::Pushers> pushers_;
};

class Velmora : public System {
  public:
    Facts facts() override {
        return {"hub interface " + std::to_string(peers::hub::IVelmoraHubConsumer::version),
                "unix sockets, shared-memory rings for oneway calls",
                kIsHub ? "yes, once queued for the worker"
                       : "yes, once queued for the second thread",
                std::string(kIsHub ? "the daemon" : "a bare relay on the hub's layer") +
                        (kLogs ? ", logs everything to a file" : ", log silenced") +
                        (kThreads > 1 ? ", " + std::to_string(kThreads) +
                                                " pushing threads in flat-out runs"
                                      : "")};
    }

    void broker(const Args& args, std::function<void(std::vector<pid_t>)> ready) override {
        Prepare(args);
        const pid_t manager = Start({PEER_SERVICEMANAGER, PEER_MANIFESTS "/velmora_hub.xml",
                                     PEER_MANIFESTS "/touch_input.xml"},
                                    args.dir + "/servicemanager.log");
        const pid_t broker = Start({kIsHub ? PEER_DAEMON : PEER_RELAY}, args.dir + "/broker.log");
        const ndk::SpAIBinder service(
                AServiceManager_waitForService(peers::ServiceName(kBroker).c_str()));
        if (service.get() == nullptr) fail("the broker is not there");
        ready({broker, manager});
        WaitForEndOfInput();
        // The driver only tells the sum.
        fprintf(stderr, "%s: broker %s; service manager %s\n", args.dir.c_str(),
                PeakMemory(broker).c_str(), PeakMemory(manager).c_str());
        wait_for_stop_then_end(broker);
    }

    std::unique_ptr<Publisher> connect_producer(const Args& args) override {
        Prepare(args);
        std::string error;
        auto push = peers::ConnectProducer(kBroker, args.signal, &error);
        if (!push) fail("cannot register: " + error);
        return std::make_unique<Producer>(std::move(push), args.signal);
    }

    void consume(const Args& args, Sink& sink) override {
        Prepare(args);
        std::string error;
        const auto consumer = peers::Subscribe(
                kBroker, args.signal,
                [&sink](const uint8_t* data, size_t size) { sink.event(data, size); }, &error);
        if (!consumer) fail("cannot subscribe: " + error);
        sink.subscribed();
        ABinderProcess_joinThreadPool();
    }
};

}  // namespace

int main(int argc, char** argv) {
    Velmora velmora;
    return peer_main(argc, argv, velmora);
}
