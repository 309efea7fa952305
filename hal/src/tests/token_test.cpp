// Labels: memory threads
// Which tokens a manager takes for its own.

#include <gtest/gtest.h>

#include <cstddef>

#include "hub_parts.h"
#include "test_object.h"

namespace velmora_test {
namespace {

using hub::ConsumerToken;
using hub::ProducerToken;

// A token of a test's own, laid out like the hub's.
struct Stranger : hub::BnToken {
    Stranger(int32_t first, int32_t second) : first(first), second(second) {}
    const int32_t first;
    const int32_t second;
};

alignas(std::max_align_t) unsigned char g_place[1024];

// One object at a time, all at the same address.
template <typename T>
struct Place {
    using value_type = T;
    Place() = default;
    template <typename U>
    explicit Place(const Place<U>&) {}
    static T* allocate(size_t count) {
        return reinterpret_cast<T*>(count * sizeof(T) <= sizeof g_place ? g_place : nullptr);
    }
    static void deallocate(T*, size_t) {}
};

template <typename T>
std::shared_ptr<hub::IToken> Make() {
    return ndk::SharedRefBase::make<T>(-1, INT32_MIN);
}

template <typename T>
std::shared_ptr<hub::IToken> MakeThere() {
    return std::allocate_shared<T>(Place<T>(), -1, INT32_MIN);
}

// As which managers take it.
std::string KindOf(const std::shared_ptr<hub::IToken>& token) {
    const auto producer = ProducerToken::From(token);
    const auto consumer = ConsumerToken::From(token);
    EXPECT_TRUE(producer == nullptr || producer == token);
    EXPECT_TRUE(consumer == nullptr || consumer == token);
    return std::string(producer != nullptr ? "producer" : "") +
           (consumer != nullptr ? "consumer" : "");
}

TEST(Tokens, AreRecognisedByTheirClassAlone) {
    EXPECT_EQ(KindOf(nullptr), "");
    // They are not mistaken for a dead one at the same address.
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(KindOf(MakeThere<ProducerToken>()), "producer");
        EXPECT_EQ(KindOf(MakeThere<Stranger>()), "");
        EXPECT_EQ(KindOf(MakeThere<ConsumerToken>()), "consumer");
    }
}

TEST(Tokens, AreRecognisedWhileManyThreadsMakeAndDropSome) {
    const auto shared = Make<ProducerToken>();
    host::testing::InParallel(4, [&] {
        for (int i = 0; i < 500; ++i)
            EXPECT_EQ(KindOf(Make<ConsumerToken>()) + ' ' + KindOf(Make<Stranger>()) + ' ' +
                              KindOf(Make<ProducerToken>()) + ' ' + KindOf(shared),
                      "consumer  producer producer");
    });
}

}  // namespace
}  // namespace velmora_test
