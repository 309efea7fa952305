#include "node.h"

#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <numeric>

namespace calls_test {
namespace {

std::string NextName() {
    static int last = 0;
    return "test.node." + std::to_string(++last);
}

}  // namespace

ScopedAStatus Node::repeat(const Everything& everything, Everything* out) {
    *out = everything;
    return ScopedAStatus::ok();
}

ScopedAStatus Node::fill(std::vector<int32_t>* numbers, Inner* inner, Choice* choice) {
    std::iota(numbers->begin(), numbers->end(), 0);
    inner->number *= 2;
    choice->set<Choice::Tag::text>(std::to_string(numbers->size()));
    return ScopedAStatus::ok();
}

ScopedAStatus Node::carry(const Carrier& carrier, Carrier* out) {
    *out = carrier;
    return ScopedAStatus::ok();
}

ScopedAStatus Node::echo(const SpAIBinder& binder, SpAIBinder* out) {
    *out = binder;
    return ScopedAStatus::ok();
}

ScopedAStatus Node::who(Who* out) {
    out->pid = getpid();
    out->callingPid = AIBinder_getCallingPid();
    out->callingUid = static_cast<int32_t>(AIBinder_getCallingUid());
    return ScopedAStatus::ok();
}

ScopedAStatus Node::ask(const std::shared_ptr<INode>& other, Who* out) {
    return other->who(out);
}

ScopedAStatus Node::echoBy(const std::shared_ptr<INode>& other, const SpAIBinder& binder,
                           SpAIBinder* out) {
    return other->echo(binder, out);
}

ScopedAStatus Node::bounce(const std::shared_ptr<INode>& partner, int32_t depth, int32_t* out) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        bounce_threads_.insert(std::this_thread::get_id());
    }
    *out = 0;
    if (depth == 0) return ScopedAStatus::ok();
    const pid_t caller = AIBinder_getCallingPid();
    ScopedAStatus status = partner->bounce(ref<INode>(), depth - 1, out);
    ++*out;
    // The nested calls that this thread served meanwhile came from others.
    if (AIBinder_getCallingPid() != caller) return ScopedAStatus::fromServiceSpecificError(caller);
    return status;
}

ScopedAStatus Node::keep(const std::shared_ptr<INode>& node) {
    std::shared_ptr<INode> former = node;
    std::lock_guard<std::mutex> lock(mutex_);
    kept_.swap(former);
    return ScopedAStatus::ok();
}

ScopedAStatus Node::kept(std::shared_ptr<INode>* out) {
    std::lock_guard<std::mutex> lock(mutex_);
    *out = kept_;
    return ScopedAStatus::ok();
}

ScopedAStatus Node::askKept(const std::shared_ptr<INode>& keeper, Who* out) {
    std::shared_ptr<INode> node;
    ScopedAStatus status = keeper->kept(&node);
    if (!status.isOk()) return status;
    return node == nullptr ? ScopedAStatus::fromExceptionCode(EX_ILLEGAL_STATE) : node->who(out);
}

ScopedAStatus Node::fail(int32_t exception, int32_t serviceSpecific,
                         const std::optional<std::string>& message) {
    if (exception == EX_SERVICE_SPECIFIC) {
        return message ? ScopedAStatus::fromServiceSpecificErrorWithMessage(serviceSpecific,
                                                                            message->c_str())
                       : ScopedAStatus::fromServiceSpecificError(serviceSpecific);
    }
    return message ? ScopedAStatus::fromExceptionCodeWithMessage(exception, message->c_str())
                   : ScopedAStatus::fromExceptionCode(exception);
}

ScopedAStatus Node::failWith(int32_t status) {
    return ScopedAStatus::fromStatus(status);
}

ScopedAStatus Node::demand(const std::string&, const Inner&, const std::shared_ptr<INode>&,
                           const Nodes&, const SpAIBinder&) {
    std::lock_guard<std::mutex> lock(mutex_);
    ++demands_;
    return ScopedAStatus::ok();
}

ScopedAStatus Node::demands(int32_t* out) {
    std::lock_guard<std::mutex> lock(mutex_);
    *out = demands_;
    return ScopedAStatus::ok();
}

binder_status_t Node::dump(int fd, const char** args, uint32_t numArgs) {
    const std::vector<std::string> words(args, args + numArgs);
    if (!words.empty() && words[0] == "refuse") return STATUS_PERMISSION_DENIED;
    std::string text;
    if (words.size() == 2 && words[0] == "bytes") {
        text.assign(static_cast<size_t>(atoi(args[1])), 'x');
    } else {
        for (const std::string& word : words)
            text += word + "\n";
    }
    const auto written = write(fd, text.data(), text.size());
    return written == static_cast<ssize_t>(text.size()) ? STATUS_OK : STATUS_UNKNOWN_ERROR;
}

std::set<std::thread::id> Node::bounce_threads() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return bounce_threads_;
}

RemoteNode::RemoteNode()
        : name_(NextName()), helper_("Node", {name_}), node_(INode::fromBinder(LookUp())) {}

SpAIBinder RemoteNode::LookUp() const {
    return SpAIBinder(AServiceManager_waitForService(name_.c_str()));
}

}  // namespace calls_test

HOST_HELPER(Node) {
    ABinderProcess_startThreadPool();
    const auto node = ndk::SharedRefBase::make<calls_test::Node>();
    const char* const name = channel.arguments().front().c_str();
    if (AServiceManager_addService(node->asBinder().get(), name) != EX_NONE) return 1;
    channel.Serve([](const std::string& line) { return line; });
    return 0;
}
