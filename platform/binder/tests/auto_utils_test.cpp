// Labels: memory threads
// Owners of binders and interfaces: every reference is dropped once, and an object has one binder
// at a time.

#include <android/binder_auto_utils.h>
#include <android/binder_interface_utils.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

#include "tests/local_object.h"

namespace {

using ndk::SpAIBinder;

TEST(SpAIBinderTest, EachWayOfTakingAndGivingKeepsOneReferencePerOwner) {
    std::atomic<int> alive{0};
    SpAIBinder first = MakeLocalObject(&alive);
    AIBinder* const object = first.get();
    SpAIBinder copy(first);
    SpAIBinder moved(std::move(first));
    EXPECT_EQ(first.get(), nullptr);
    first = copy;
    SpAIBinder& same = copy;
    copy = same;
    moved = nullptr;
    moved = std::move(copy);
    EXPECT_EQ(first.get(), object);
    EXPECT_EQ(moved.get(), object);
    EXPECT_EQ(AIBinder_debugGetRefCount(object), 2);
    first.set(nullptr);
    EXPECT_EQ(alive, 1);
    *moved.getR() = nullptr;
    EXPECT_EQ(alive, 0);
}

class IThing : public ndk::ICInterface {};

AIBinder_Class* ThingClass() {
    static AIBinder_Class* const clazz = ndk::ICInterface::defineClass(
            "test.IThing", [](AIBinder*, transaction_code_t, const AParcel*, AParcel*) {
                return binder_status_t{STATUS_UNKNOWN_TRANSACTION};
            });
    return clazz;
}

class Thing : public ndk::BnCInterface<IThing> {
  public:
    explicit Thing(std::atomic<int>* alive) : alive_(alive) { ++*alive_; }
    ~Thing() override {
        EXPECT_EQ(ref(), nullptr);
        EXPECT_EQ(asBinder().get(), nullptr) << "nobody could own it any more";
        --*alive_;
    }
    binder_status_t dump(int fd, const char**, uint32_t) override { return fd; }

  protected:
    SpAIBinder createBinder() override {
        return SpAIBinder(AIBinder_new(ThingClass(), static_cast<ndk::ICInterface*>(this)));
    }

  private:
    std::atomic<int>* const alive_;
};

TEST(InterfaceTest, TheBinderIsMadeOnceAndHoldsItsObject) {
    std::atomic<int> alive{0};
    std::shared_ptr<Thing> thing = ndk::SharedRefBase::make<Thing>(&alive);
    SpAIBinder binder = thing->asBinder();
    EXPECT_TRUE(binder == thing->asBinder());
    EXPECT_EQ(ndk::ICInterface::asInterface(binder.get()), thing);
    EXPECT_EQ(ndk::ICInterface::asInterface(nullptr), nullptr);
    EXPECT_FALSE(thing->isRemote());
    EXPECT_EQ(AIBinder_dump(binder.get(), 123, nullptr, 0), 123);
    thing.reset();
    EXPECT_EQ(alive, 1);
    binder = nullptr;
    EXPECT_EQ(alive, 0);
}

TEST(InterfaceTest, ABinderThatWentIsMadeAnew) {
    std::atomic<int> alive{0};
    const std::shared_ptr<Thing> thing = ndk::SharedRefBase::make<Thing>(&alive);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(ndk::ICInterface::asInterface(thing->asBinder().get()), thing);
    }
    EXPECT_EQ(thing.use_count(), 1);
}

TEST(InterfaceTest, ThreadsThatAskAtTheSameTimeGetTheSameBinder) {
    std::atomic<int> alive{0};
    const std::shared_ptr<Thing> thing = ndk::SharedRefBase::make<Thing>(&alive);
    for (int round = 0; round < 200; ++round) {
        SpAIBinder seen[2];
        std::thread other([&] { seen[0] = thing->asBinder(); });
        seen[1] = thing->asBinder();
        other.join();
        ASSERT_NE(seen[0].get(), nullptr);
        ASSERT_TRUE(seen[0] == seen[1]);
    }
}

TEST(InterfaceTest, AWeakReferencePromotesOnlyWhileTheObjectLives) {
    std::atomic<int> alive{0};
    SpAIBinder binder = MakeLocalObject(&alive);
    const ndk::ScopedAIBinder_Weak weak(AIBinder_Weak_new(binder.get()));
    EXPECT_TRUE(weak.promote() == binder);
    binder = nullptr;
    EXPECT_EQ(weak.promote().get(), nullptr);
    EXPECT_EQ(ndk::ScopedAIBinder_Weak().promote().get(), nullptr);
}

}  // namespace
