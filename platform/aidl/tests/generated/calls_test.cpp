// Labels: memory
// Calls that go through a proxy, parcels and a stub, all in this process.

#include <aidl/velmora/sample/BnListener.h>
#include <aidl/velmora/sample/BnSample.h>
#include <aidl/velmora/sample/BpSample.h>
#include <gtest/gtest.h>

#include <numeric>

#include "tests/generated/sample_values.h"

namespace aidl::velmora::sample {
namespace {

using ndk::ScopedAStatus;
using ndk::SpAIBinder;
using sample_test::MakeEverything;
using sample_test::MakeInner;
using Listener = std::shared_ptr<IListener>;

class Sample : public BnSample {
  public:
    ScopedAStatus add(int32_t, int32_t, int32_t*) override { return ScopedAStatus::ok(); }
    ScopedAStatus repeat(const Everything& everything, Everything* out) override {
        *out = everything;
        return ScopedAStatus::ok();
    }
    ScopedAStatus repeatNullable(const std::optional<std::string>& text,
                                 const std::optional<std::vector<int32_t>>& numbers,
                                 std::optional<std::string>* out) override {
        if (numbers) *out = text;
        return ScopedAStatus::ok();
    }
    ScopedAStatus fill(std::vector<int32_t>* numbers, Inner* inner, Choice* choice, Colour,
                       Reason* out) override {
        std::iota(numbers->begin(), numbers->end(), 0);
        inner->number *= 2;
        *choice = Choice::make<Choice::Tag::text>(std::to_string(numbers->size()));
        *out = Reason::OTHER;
        return ScopedAStatus::ok();
    }
    ScopedAStatus exchange(const SpAIBinder& token, const Listener&, const std::vector<Listener>&,
                           SpAIBinder* out) override {
        ++exchanges;
        *out = answers_null ? SpAIBinder() : token;
        return ScopedAStatus::ok();
    }
    ScopedAStatus notifyLater(const Listener&, const std::string&) override {
        return ScopedAStatus::ok();
    }
    ScopedAStatus fail(int32_t) override { return ScopedAStatus::ok(); }

    bool answers_null = false;
    int exchanges = 0;
};

struct SilentListener : BnListener {
    ScopedAStatus onText(const std::string&) override { return ScopedAStatus::ok(); }
    ScopedAStatus onSample(const std::shared_ptr<ISample>&) override { return ScopedAStatus::ok(); }
};

class Calls : public testing::Test {
  protected:
    const std::shared_ptr<Sample> sample_ = ndk::SharedRefBase::make<Sample>();
    const std::shared_ptr<ISample> proxy_ = ndk::SharedRefBase::make<BpSample>(sample_->asBinder());
    const Listener listener_ = ndk::SharedRefBase::make<SilentListener>();
};

TEST_F(Calls, BringValuesOfEveryTypeThereAndBack) {
    Everything empty;
    empty.bytes.clear();
    empty.texts.clear();
    empty.colours.clear();
    empty.maybeText.emplace();
    empty.maybeInner.emplace();
    empty.maybeChoice.emplace();
    empty.maybeTexts.emplace();
    empty.maybeInners.emplace();
    Everything long_text;
    long_text.text = "a\u00e9\u4e2d\U0001f600\uffff" + std::string("\0b\0", 3);
    long_text.texts = {"", long_text.text};
    // As new ones are, all nullables are null; in the second no field is what a new one has.
    for (const Everything& value : {Everything(), MakeEverything(), empty, long_text}) {
        Everything back = MakeEverything();
        ASSERT_TRUE(proxy_->repeat(value, &back).isOk());
        EXPECT_EQ(back, value);
    }
    for (const auto& text : {std::optional<std::string>(), std::optional<std::string>("")}) {
        std::optional<std::string> back = "old";
        ASSERT_TRUE(proxy_->repeatNullable(text, std::vector<int32_t>(), &back).isOk());
        EXPECT_EQ(back, text);
        ASSERT_TRUE(proxy_->repeatNullable("no numbers", std::nullopt, &back).isOk());
        EXPECT_EQ(back, std::nullopt);
    }
}

TEST_F(Calls, FillWhatIsTheCallersToBeFilled) {
    std::vector<int32_t> numbers(3, -1);
    Inner inner = MakeInner(21);
    Choice choice;
    ISample::Reason reason{};
    ASSERT_TRUE(proxy_->fill(&numbers, &inner, &choice, Colour::RED, &reason).isOk());
    EXPECT_EQ(numbers, (std::vector<int32_t>{0, 1, 2}));
    EXPECT_TRUE(inner.number == 42 && inner.name == "n21");
    EXPECT_EQ(choice, Choice::make<Choice::Tag::text>("3"));
    EXPECT_EQ(reason, ISample::Reason::OTHER);
}

TEST_F(Calls, PassNoNullAndNoBinderOfAnotherInterfaceToTheImplementation) {
    const SpAIBinder token = sample_->asBinder(), listener = listener_->asBinder();
    AIBinder* const right = listener.get();
    AIBinder* const wrong = token.get();
    const struct {
        AIBinder *token, *listener;
        std::vector<AIBinder*> listeners;
        binder_status_t status;
    } rows[] = {{nullptr, right, {}, STATUS_UNEXPECTED_NULL},
                {wrong, wrong, {}, STATUS_BAD_TYPE},
                {wrong, right, {right, nullptr}, STATUS_UNEXPECTED_NULL},
                {wrong, right, {right, wrong}, STATUS_BAD_TYPE},
                {wrong, nullptr, {right}, STATUS_OK}};
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        ndk::ScopedAParcel in, out;
        ASSERT_EQ(AIBinder_prepareTransaction(token.get(), in.getR()), STATUS_OK);
        AParcel_writeStrongBinder(in.get(), row.token);
        AParcel_writeStrongBinder(in.get(), row.listener);
        AParcel_writeInt32(in.get(), static_cast<int32_t>(row.listeners.size()));
        for (AIBinder* one : row.listeners)
            AParcel_writeStrongBinder(in.get(), one);
        EXPECT_EQ(AIBinder_transact(token.get(), ISample::TRANSACTION_exchange, in.getR(),
                                    out.getR(), 0),
                  row.status);
        EXPECT_EQ(sample_->exchanges, row.status == STATUS_OK ? 1 : 0);
    }
}

TEST_F(Calls, PassNoNullOnWhereNoneMayBeInEitherDirection) {
    const SpAIBinder token = sample_->asBinder();
    SpAIBinder back;
    EXPECT_EQ(proxy_->exchange(nullptr, nullptr, {}, &back).getStatus(), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(proxy_->exchange(token, nullptr, {nullptr}, &back).getStatus(),
              STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(sample_->exchanges, 0);
    EXPECT_TRUE(proxy_->exchange(token, nullptr, {listener_}, &back).isOk());
    EXPECT_EQ(back, token);
    sample_->answers_null = true;
    EXPECT_EQ(proxy_->exchange(token, nullptr, {}, &back).getStatus(), STATUS_UNEXPECTED_NULL);
}

TEST_F(Calls, TellTheVersionAndTheHash) {
    int32_t version = 0;
    std::string hash;
    EXPECT_TRUE(proxy_->getInterfaceVersion(&version).isOk());
    EXPECT_TRUE(proxy_->getInterfaceHash(&hash).isOk());
    EXPECT_EQ(version, 3);
    EXPECT_EQ(hash, ISample::hash);
}

// As two processes do that were built with different versions of a package.
TEST(Versions, ReadWhatTheyKnowSkipWhatIsNewAndKeepDefaultsOfWhatIsNotThere) {
    InnerNext newer;
    newer.number = 1;
    newer.more = {5, 6, 7};
    const ndk::ScopedAParcel parcel(AParcel_create());
    ndk::AParcel_writeData(parcel.get(), std::vector<InnerNext>{newer, InnerNext()});
    ndk::AParcel_writeData(parcel.get(), std::vector<Inner>{MakeInner(2), MakeInner(3)});
    AParcel_setDataPosition(parcel.get(), 0);
    std::vector<Inner> as_older;
    std::vector<InnerNext> as_newer;
    ASSERT_EQ(ndk::AParcel_readData(parcel.get(), &as_older), STATUS_OK);
    ASSERT_EQ(ndk::AParcel_readData(parcel.get(), &as_newer), STATUS_OK);
    ASSERT_EQ(as_older.size() + as_newer.size(), 4u);
    EXPECT_EQ(as_older[0].number, 1);
    EXPECT_EQ(as_older[1], Inner());
    EXPECT_EQ(as_newer[1].name, "n3");
    EXPECT_EQ(as_newer[1].more, InnerNext().more);
}

}  // namespace
}  // namespace aidl::velmora::sample
