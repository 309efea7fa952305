// Labels: memory
// Proxy and stub in one process. What crosses between processes is tested there.
#include <aidl/velmora/sample/BnListener.h>
#include <aidl/velmora/sample/BnSample.h>
#include <aidl/velmora/sample/BpSample.h>
#include <gtest/gtest.h>

#include "tests/generated/sample_values.h"

namespace {

using aidl::velmora::sample::BnListener;
using aidl::velmora::sample::BnSample;
using aidl::velmora::sample::BpSample;
using aidl::velmora::sample::Choice;
using aidl::velmora::sample::Colour;
using aidl::velmora::sample::Everything;
using aidl::velmora::sample::IListener;
using aidl::velmora::sample::Inner;
using aidl::velmora::sample::ISample;
using ndk::ScopedAStatus;
using ndk::SpAIBinder;

using Listeners = std::vector<std::shared_ptr<IListener>>;

class Listener : public BnListener {
  public:
    ScopedAStatus onText(const std::string&) override { return ScopedAStatus::ok(); }
    ScopedAStatus onSample(const std::shared_ptr<ISample>&) override { return ScopedAStatus::ok(); }
};

class Sample : public BnSample {
  public:
    ScopedAStatus add(int32_t left, int32_t right, int32_t* sum) override {
        *sum = left + right;
        return Called();
    }
    ScopedAStatus repeat(const Everything& everything, Everything* out) override {
        *out = everything;
        return Called();
    }
    ScopedAStatus repeatNullable(const std::optional<std::string>& text,
                                 const std::optional<std::vector<int32_t>>& numbers,
                                 std::optional<std::string>* out) override {
        *out = text;
        if (numbers) out->emplace(std::to_string(numbers->size()));
        return Called();
    }
    ScopedAStatus fill(std::vector<int32_t>* numbers, Inner* inner, Choice* choice, Colour colour,
                       Reason* out) override {
        for (int32_t& number : *numbers)
            number = static_cast<int32_t>(colour);
        inner->number *= 2;
        choice->set<Choice::Tag::text>("filled");
        *out = Reason::OTHER;
        return Called();
    }
    ScopedAStatus exchange(const SpAIBinder& token, const std::shared_ptr<IListener>& listener,
                           const Listeners& listeners, SpAIBinder* out) override {
        last_listener = listener;
        last_count = listeners.size();
        *out = answer_null ? SpAIBinder() : token;
        return Called();
    }
    ScopedAStatus notifyLater(const std::shared_ptr<IListener>&, const std::string&) override {
        return Called();
    }
    ScopedAStatus fail(int32_t) override { return Called(); }

    int calls = 0;
    bool answer_null = false;
    std::shared_ptr<IListener> last_listener;
    size_t last_count = 0;

  private:
    ScopedAStatus Called() {
        ++calls;
        return ScopedAStatus::ok();
    }
};

// A proxy over the binder of an object of this process: every call goes through the proxy's and the
// stub's code and through parcels.
class InterfaceTest : public testing::Test {
  protected:
    // Sends what `write` puts into the parcel, past the proxy.
    template <typename Write>
    binder_status_t Send(transaction_code_t code, Write write) {
        const SpAIBinder binder = sample_->asBinder();
        ndk::ScopedAParcel in;
        ndk::ScopedAParcel out;
        EXPECT_EQ(AIBinder_prepareTransaction(binder.get(), in.getR()), STATUS_OK);
        write(in.get());
        return AIBinder_transact(binder.get(), code, in.getR(), out.getR(), 0);
    }

    const std::shared_ptr<Sample> sample_ = ndk::SharedRefBase::make<Sample>();
    const std::shared_ptr<BpSample> proxy_ =
            ndk::SharedRefBase::make<BpSample>(sample_->asBinder());
    const std::shared_ptr<Listener> listener_ = ndk::SharedRefBase::make<Listener>();
};

TEST_F(InterfaceTest, NullCrossesWhereItIsAllowed) {
    std::optional<std::string> out = "before";
    ASSERT_TRUE(proxy_->repeatNullable(std::nullopt, std::nullopt, &out).isOk());
    EXPECT_FALSE(out.has_value());
    ASSERT_TRUE(proxy_->repeatNullable("text", std::nullopt, &out).isOk());
    EXPECT_EQ(out, "text");
    ASSERT_TRUE(proxy_->repeatNullable("text", std::vector<int32_t>{1, 2, 3}, &out).isOk());
    EXPECT_EQ(out, "3");
    SpAIBinder token = listener_->asBinder();
    ASSERT_TRUE(proxy_->exchange(token, listener_, {listener_, listener_}, &token).isOk());
    EXPECT_EQ(sample_->last_listener, listener_);
    EXPECT_EQ(sample_->last_count, 2u);
    ASSERT_TRUE(proxy_->exchange(token, nullptr, {}, &token).isOk());
    EXPECT_EQ(sample_->last_listener, nullptr);
}

TEST_F(InterfaceTest, OutParametersComeBackAndArraysKeepTheirLength) {
    std::vector<int32_t> numbers(3);
    Inner inner = sample_test::MakeInner(21);
    Choice choice;
    ISample::Reason reason = ISample::Reason::NONE;
    ASSERT_TRUE(proxy_->fill(&numbers, &inner, &choice, Colour::GREEN, &reason).isOk());
    EXPECT_EQ(numbers, (std::vector<int32_t>{4, 4, 4}));
    EXPECT_EQ(inner.number, 42);
    EXPECT_EQ(choice.get<Choice::Tag::text>(), "filled");
    EXPECT_EQ(reason, ISample::Reason::OTHER);
}

TEST_F(InterfaceTest, ANullResultThatIsNotAllowedFailsTheCall) {
    sample_->answer_null = true;
    SpAIBinder out;
    EXPECT_EQ(proxy_->exchange(listener_->asBinder(), nullptr, {}, &out).getStatus(),
              STATUS_UNEXPECTED_NULL);
}

TEST_F(InterfaceTest, TheStubRefusesNullArraysAndWrongBindersAlsoWhereNullIsAllowed) {
    const SpAIBinder wrong = sample_->asBinder();
    const auto exchange = [&](AIBinder* listener) {
        return Send(ISample::TRANSACTION_exchange, [&](AParcel* in) {
            AParcel_writeStrongBinder(in, wrong.get());
            AParcel_writeStrongBinder(in, listener);
            AParcel_writeInt32(in, -1);
        });
    };
    EXPECT_EQ(exchange(nullptr), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(exchange(wrong.get()), STATUS_BAD_TYPE);
    EXPECT_EQ(Send(ISample::TRANSACTION_fill, [](AParcel* in) { AParcel_writeInt32(in, -2); }),
              STATUS_BAD_VALUE);
    EXPECT_EQ(sample_->calls, 0);
}

TEST_F(InterfaceTest, VersionAndHashAreAnsweredByTheObject) {
    int32_t version = 0;
    std::string hash;
    ASSERT_TRUE(proxy_->getInterfaceVersion(&version).isOk());
    ASSERT_TRUE(proxy_->getInterfaceHash(&hash).isOk());
    EXPECT_EQ(version, ISample::version);
    EXPECT_EQ(hash, "notfrozen");
}

}  // namespace
