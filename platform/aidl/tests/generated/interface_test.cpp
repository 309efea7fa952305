// Labels: memory
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
using sample_test::MakeEverything;
using sample_test::MakeInner;

using Listeners = std::vector<std::shared_ptr<IListener>>;

class Listener : public BnListener {
  public:
    ScopedAStatus onText(const std::string& text) override {
        texts.push_back(text);
        return ScopedAStatus::ok();
    }
    ScopedAStatus onSample(const std::shared_ptr<ISample>&) override { return ScopedAStatus::ok(); }

    std::vector<std::string> texts;
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
    ScopedAStatus notifyLater(const std::shared_ptr<IListener>& listener,
                              const std::string& text) override {
        listener->onText(text);
        return Called();
    }
    ScopedAStatus fail(int32_t code) override {
        ++calls;
        return ScopedAStatus::fromServiceSpecificErrorWithMessage(code, "as asked");
    }

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

TEST_F(InterfaceTest, ArgumentsAndResultsCrossUnchanged) {
    int32_t sum = 0;
    ASSERT_TRUE(proxy_->add(40, 2, &sum).isOk());
    EXPECT_EQ(sum, 42);
    Everything repeated;
    ASSERT_TRUE(proxy_->repeat(MakeEverything(), &repeated).isOk());
    EXPECT_EQ(repeated, MakeEverything());
}

TEST_F(InterfaceTest, NullCrossesWhereItIsAllowed) {
    std::optional<std::string> out = "before";
    ASSERT_TRUE(proxy_->repeatNullable(std::nullopt, std::nullopt, &out).isOk());
    EXPECT_FALSE(out.has_value());
    ASSERT_TRUE(proxy_->repeatNullable("text", std::nullopt, &out).isOk());
    EXPECT_EQ(out, "text");
    ASSERT_TRUE(proxy_->repeatNullable("text", std::vector<int32_t>{1, 2, 3}, &out).isOk());
    EXPECT_EQ(out, "3");
}

TEST_F(InterfaceTest, OutParametersComeBackAndArraysKeepTheirLength) {
    std::vector<int32_t> numbers(3);
    Inner inner = MakeInner(21);
    Choice choice;
    ISample::Reason reason = ISample::Reason::NONE;
    ASSERT_TRUE(proxy_->fill(&numbers, &inner, &choice, Colour::GREEN, &reason).isOk());
    EXPECT_EQ(numbers, (std::vector<int32_t>{4, 4, 4}));
    EXPECT_EQ(inner.number, 42);
    EXPECT_EQ(inner.name, "n21");
    EXPECT_EQ(choice.get<Choice::Tag::text>(), "filled");
    EXPECT_EQ(reason, ISample::Reason::OTHER);
}

TEST_F(InterfaceTest, AnObjectComesBackAsItself) {
    SpAIBinder out;
    const SpAIBinder token = listener_->asBinder();
    ASSERT_TRUE(proxy_->exchange(token, listener_, {listener_, listener_}, &out).isOk());
    EXPECT_EQ(out, token);
    EXPECT_EQ(sample_->last_listener, listener_);
    EXPECT_EQ(sample_->last_count, 2u);
    ASSERT_TRUE(proxy_->exchange(token, nullptr, {}, &out).isOk());
    EXPECT_EQ(sample_->last_listener, nullptr);
}

TEST_F(InterfaceTest, AFailureBringsItsCodeAndMessage) {
    const ScopedAStatus status = proxy_->fail(17);
    EXPECT_EQ(status.getExceptionCode(), EX_SERVICE_SPECIFIC);
    EXPECT_EQ(status.getServiceSpecificError(), 17);
    EXPECT_STREQ(status.getMessage(), "as asked");
}

TEST_F(InterfaceTest, ANullResultThatIsNotAllowedFailsTheCall) {
    sample_->answer_null = true;
    SpAIBinder out;
    EXPECT_EQ(proxy_->exchange(listener_->asBinder(), nullptr, {}, &out).getStatus(),
              STATUS_UNEXPECTED_NULL);
}

TEST_F(InterfaceTest, TheProxyRefusesToSendNullWhereItIsNotAllowed) {
    SpAIBinder out;
    EXPECT_EQ(proxy_->exchange(nullptr, nullptr, {}, &out).getStatus(), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(proxy_->exchange(listener_->asBinder(), nullptr, {nullptr}, &out).getStatus(),
              STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(proxy_->notifyLater(nullptr, "x").getStatus(), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(sample_->calls, 0);
}

TEST_F(InterfaceTest, TheStubRefusesNullBeforeTheImplementationSeesIt) {
    const SpAIBinder token = listener_->asBinder();
    const auto exchange = ISample::TRANSACTION_exchange;
    EXPECT_EQ(Send(exchange, [](AParcel* in) { AParcel_writeStrongBinder(in, nullptr); }),
              STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(Send(exchange,
                   [&](AParcel* in) {
                       AParcel_writeStrongBinder(in, token.get());
                       AParcel_writeStrongBinder(in, nullptr);
                       AParcel_writeInt32(in, -1);
                   }),
              STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(Send(exchange,
                   [&](AParcel* in) {
                       AParcel_writeStrongBinder(in, token.get());
                       AParcel_writeStrongBinder(in, nullptr);
                       AParcel_writeInt32(in, 1);
                       AParcel_writeStrongBinder(in, nullptr);
                   }),
              STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(Send(ISample::TRANSACTION_notifyLater,
                   [&](AParcel* in) {
                       AParcel_writeStrongBinder(in, token.get());
                       AParcel_writeString(in, nullptr, -1);
                   }),
              STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(Send(ISample::TRANSACTION_repeat, [](AParcel* in) { AParcel_writeInt32(in, 0); }),
              STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(sample_->calls, 0);
}

TEST_F(InterfaceTest, TheStubRefusesABinderOfAnotherInterfaceAlsoWhereNullIsAllowed) {
    const SpAIBinder wrong = sample_->asBinder();
    EXPECT_EQ(Send(ISample::TRANSACTION_notifyLater,
                   [&](AParcel* in) {
                       AParcel_writeStrongBinder(in, wrong.get());
                       AParcel_writeString(in, "x", 1);
                   }),
              STATUS_BAD_TYPE);
    EXPECT_EQ(Send(ISample::TRANSACTION_exchange,
                   [&](AParcel* in) {
                       AParcel_writeStrongBinder(in, wrong.get());
                       AParcel_writeStrongBinder(in, wrong.get());
                   }),
              STATUS_BAD_TYPE);
    EXPECT_EQ(sample_->calls, 0);
}

TEST_F(InterfaceTest, AnUnknownCodeAndMissingArgumentsAreErrors) {
    const auto nothing = [](AParcel*) {};
    EXPECT_EQ(Send(FIRST_CALL_TRANSACTION + 7, nothing), STATUS_UNKNOWN_TRANSACTION);
    EXPECT_NE(Send(ISample::TRANSACTION_add, nothing), STATUS_OK);
    EXPECT_EQ(Send(ISample::TRANSACTION_fill, [](AParcel* in) { AParcel_writeInt32(in, -2); }),
              STATUS_BAD_VALUE);
    EXPECT_EQ(sample_->calls, 0);
}

TEST_F(InterfaceTest, VersionAndHashAreAnsweredByTheObject) {
    int32_t version = 0;
    std::string hash;
    ASSERT_TRUE(proxy_->getInterfaceVersion(&version).isOk());
    ASSERT_TRUE(proxy_->getInterfaceHash(&hash).isOk());
    EXPECT_EQ(version, 3);
    EXPECT_EQ(hash, "notfrozen");
    EXPECT_EQ(ISample::version, 3);
    EXPECT_EQ(ISample::hash, hash);
}

TEST_F(InterfaceTest, FromBinderGivesTheVeryObjectOrNull) {
    EXPECT_EQ(ISample::fromBinder(sample_->asBinder()), sample_);
    EXPECT_EQ(ISample::fromBinder(listener_->asBinder()), nullptr);
    EXPECT_EQ(ISample::fromBinder(SpAIBinder()), nullptr);
    EXPECT_STREQ(ISample::descriptor, "velmora.sample.ISample");
}

TEST_F(InterfaceTest, CodesFollowTheOrderOfDeclaration) {
    EXPECT_EQ(ISample::TRANSACTION_add, FIRST_CALL_TRANSACTION);
    EXPECT_EQ(ISample::TRANSACTION_repeat, FIRST_CALL_TRANSACTION + 1u);
    EXPECT_EQ(ISample::TRANSACTION_fail, FIRST_CALL_TRANSACTION + 6u);
}

}  // namespace
