// An object of one process that calls those of others as it is told, and processes that publish
// one. A node is called on any thread; a RemoteNode belongs to one.
#pragma once

#include <aidl/test/calls/BnNode.h>
#include <android-base/thread_annotations.h>
#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "test_object.h"

namespace calls_test {

using aidl::test::calls::INode;
using aidl::test::calls::Who;
using host::testing::SharedHost;
using ndk::ScopedAStatus;
using ndk::SpAIBinder;

class Node : public aidl::test::calls::BnNode {
  public:
    using Carrier = aidl::velmora::sample::Carrier;
    using Choice = aidl::velmora::sample::Choice;
    using Everything = aidl::velmora::sample::Everything;
    using Inner = aidl::velmora::sample::Inner;
    using Nodes = std::vector<std::shared_ptr<INode>>;

    ScopedAStatus repeat(const Everything& everything, Everything* out) override;
    ScopedAStatus fill(std::vector<int32_t>* numbers, Inner* inner, Choice* choice) override;
    ScopedAStatus carry(const Carrier& carrier, Carrier* out) override;
    ScopedAStatus echo(const SpAIBinder& binder, SpAIBinder* out) override;
    ScopedAStatus who(Who* out) override;
    ScopedAStatus ask(const std::shared_ptr<INode>& other, Who* out) override;
    ScopedAStatus echoBy(const std::shared_ptr<INode>& other, const SpAIBinder& binder,
                         SpAIBinder* out) override;
    ScopedAStatus bounce(const std::shared_ptr<INode>& partner, int32_t depth,
                         int32_t* out) override;
    ScopedAStatus keep(const std::shared_ptr<INode>& node) override;
    ScopedAStatus kept(std::shared_ptr<INode>* out) override;
    ScopedAStatus askKept(const std::shared_ptr<INode>& keeper, Who* out) override;
    ScopedAStatus fail(int32_t exception, int32_t serviceSpecific,
                       const std::optional<std::string>& message) override;
    ScopedAStatus failWith(int32_t status) override;
    ScopedAStatus demand(const std::string& text, const Inner& inner,
                         const std::shared_ptr<INode>& node, const Nodes& nodes,
                         const SpAIBinder& binder) override;
    ScopedAStatus demands(int32_t* out) override;

    // Writes the arguments, one a line; `bytes N` instead writes N bytes, `refuse` nothing but a
    // failure.
    binder_status_t dump(int fd, const char** args, uint32_t numArgs) override;

    // The threads on which bounce() ran.
    std::set<std::thread::id> bounce_threads() const;

  private:
    mutable std::mutex mutex_;
    std::set<std::thread::id> bounce_threads_ GUARDED_BY(mutex_);
    std::shared_ptr<INode> kept_ GUARDED_BY(mutex_);
    int32_t demands_ GUARDED_BY(mutex_) = 0;
};

// A process that publishes a Node under a name of its own.
class RemoteNode {
  public:
    // Returns when the node is published.
    RemoteNode();

    INode* operator->() const { return node_.get(); }
    const std::shared_ptr<INode>& node() const { return node_; }
    AIBinder* binder() const { return node_->asBinder().get(); }
    // As a process gets it that has not used it yet.
    SpAIBinder LookUp() const;
    host::testing::Child& process() { return helper_.process(); }
    pid_t pid() const { return helper_.pid(); }

  private:
    const std::string name_;
    host::testing::Helper helper_;
    std::shared_ptr<INode> node_;
};

}  // namespace calls_test
