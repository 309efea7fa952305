// Labels: memory processes
#include <aidl/velmora/sample/BnListener.h>
#include <gtest/gtest.h>

#include <functional>

#include "node.h"

namespace calls_test {
namespace {

using aidl::velmora::sample::BnListener;
using aidl::velmora::sample::Inner;
using aidl::velmora::sample::ISample;

const auto* const kHost = ::testing::AddGlobalTestEnvironment(new SharedHost);

TEST(Statuses, CrossUnchangedWithTheirMessages) {
    const RemoteNode node;
    struct Case {
        binder_exception_t exception;
        int32_t specific;
        std::optional<std::string> message;
    };
    std::vector<Case> cases = {
            {EX_NONE, 0, std::nullopt},
            {EX_SERVICE_SPECIFIC, 7, std::nullopt},
            {EX_SERVICE_SPECIFIC, INT32_MIN, "lowest"},
            {EX_SERVICE_SPECIFIC, 0, "zero"},
            {EX_ILLEGAL_STATE, 0, ""},
            {EX_ILLEGAL_STATE, 0, "\u00fc\u4e2d\U0001f600 and\nanother line"},
            {EX_ILLEGAL_STATE, 0, std::string(100'000, 'm')},
    };
    for (binder_exception_t exception :
         {EX_SECURITY, EX_BAD_PARCELABLE, EX_ILLEGAL_ARGUMENT, EX_NULL_POINTER, EX_ILLEGAL_STATE,
          EX_NETWORK_MAIN_THREAD, EX_UNSUPPORTED_OPERATION, EX_PARCELABLE}) {
        cases.push_back({exception, 0, std::nullopt});
        cases.push_back({exception, 0, "as asked"});
    }
    for (const auto& [exception, specific, message] : cases) {
        const ScopedAStatus status = node->fail(exception, specific, message);
        SCOPED_TRACE(status.getDescription().substr(0, 200));
        EXPECT_EQ(status.isOk(), exception == EX_NONE);
        EXPECT_EQ(status.getExceptionCode(), exception);
        EXPECT_EQ(status.getServiceSpecificError(), specific);
        EXPECT_EQ(status.getStatus(), STATUS_OK);
        ASSERT_NE(AStatus_getMessage(status.get()), nullptr);
        EXPECT_EQ(status.getMessage(), message.value_or(""));
    }
}

TEST(Statuses, OfTheTransportReachTheCaller) {
    const RemoteNode node;
    for (binder_status_t wanted : {STATUS_BAD_VALUE, STATUS_NO_MEMORY, STATUS_UNKNOWN_TRANSACTION,
                                   STATUS_PERMISSION_DENIED, STATUS_UNKNOWN_ERROR}) {
        const ScopedAStatus status = node->failWith(wanted);
        EXPECT_EQ(status.getExceptionCode(), EX_TRANSACTION_FAILED) << wanted;
        EXPECT_EQ(status.getStatus(), wanted);
    }
}

// Sends what `write` puts behind the interface's name, past the proxy.
binder_status_t Send(AIBinder* binder, transaction_code_t code,
                     const std::function<void(AParcel*)>& write) {
    ndk::ScopedAParcel in;
    ndk::ScopedAParcel out;
    const binder_status_t status = AIBinder_prepareTransaction(binder, in.getR());
    if (status != STATUS_OK) return status;
    write(in.get());
    return AIBinder_transact(binder, code, in.getR(), out.getR(), 0);
}

TEST(UnknownCodes, AreAnsweredAndLeaveTheConnectionAsItIs) {
    const RemoteNode node;
    Who who;
    ASSERT_TRUE(node->who(&who).isOk());
    const int own = host::testing::OpenDescriptors(getpid());
    const int others = host::testing::OpenDescriptors(node.pid());
    for (transaction_code_t code :
         {transaction_code_t{999}, transaction_code_t{LAST_CALL_TRANSACTION - 2},
          transaction_code_t{INode::TRANSACTION_demands + 1}}) {
        EXPECT_EQ(Send(node.binder(), code, [](AParcel*) {}), STATUS_UNKNOWN_TRANSACTION) << code;
        ASSERT_TRUE(node->who(&who).isOk());
    }
    EXPECT_EQ(host::testing::OpenDescriptors(getpid()), own);
    EXPECT_EQ(host::testing::OpenDescriptors(node.pid()), others);
}

// The parameters of INode::demand.
struct Demand {
    const char* text = "text";
    bool inner = true;
    AIBinder* node = nullptr;
    std::vector<AIBinder*> nodes;
    AIBinder* binder = nullptr;

    void Write(AParcel* parcel) const {
        AParcel_writeString(parcel, text, text == nullptr ? -1 : 4);
        // A parcelable stands behind a number that says whether it is null.
        if (inner) {
            ndk::AParcel_writeData(parcel, Inner());
        } else {
            AParcel_writeInt32(parcel, 0);
        }
        AParcel_writeStrongBinder(parcel, node);
        AParcel_writeInt32(parcel, static_cast<int32_t>(nodes.size()));
        for (AIBinder* one : nodes)
            AParcel_writeStrongBinder(parcel, one);
        AParcel_writeStrongBinder(parcel, binder);
    }
};

class Listener : public BnListener {
  public:
    ScopedAStatus onText(const std::string&) override { return ScopedAStatus::ok(); }
    ScopedAStatus onSample(const std::shared_ptr<ISample>&) override { return ScopedAStatus::ok(); }
};

TEST(Stubs, RefuseNullAndBindersOfAnotherInterfaceBeforeTheImplementationSeesThem) {
    const RemoteNode node;
    const SpAIBinder own = ndk::SharedRefBase::make<Node>()->asBinder();
    const SpAIBinder listener = ndk::SharedRefBase::make<Listener>()->asBinder();
    AIBinder* const right = own.get();
    AIBinder* const wrong = listener.get();
    struct Case {
        const char* name;
        Demand demand;
        binder_status_t status;
    };
    const Case cases[] = {
            {"no text", {nullptr, true, right, {}, right}, STATUS_UNEXPECTED_NULL},
            {"no parcelable", {"text", false, right, {}, right}, STATUS_UNEXPECTED_NULL},
            {"no node", {"text", true, nullptr, {}, right}, STATUS_UNEXPECTED_NULL},
            {"a null in the array",
             {"text", true, right, {right, nullptr}, right},
             STATUS_UNEXPECTED_NULL},
            {"no binder", {"text", true, right, {}, nullptr}, STATUS_UNEXPECTED_NULL},
            {"another interface", {"text", true, wrong, {}, right}, STATUS_BAD_TYPE},
            {"another interface in the array",
             {"text", true, right, {right, wrong}, right},
             STATUS_BAD_TYPE},
    };
    int32_t demands = -1;
    for (const auto& [name, demand, status] : cases) {
        const auto write = [&demand = demand](AParcel* parcel) { demand.Write(parcel); };
        EXPECT_EQ(Send(node.binder(), INode::TRANSACTION_demand, write), status) << name;
        ASSERT_TRUE(node->demands(&demands).isOk()) << name;
        EXPECT_EQ(demands, 0) << name;
    }
    const Demand good{"text", true, right, {right, node.binder()}, wrong};
    EXPECT_EQ(Send(node.binder(), INode::TRANSACTION_demand,
                   [&](AParcel* parcel) { good.Write(parcel); }),
              STATUS_OK);
    ASSERT_TRUE(node->demands(&demands).isOk());
    EXPECT_EQ(demands, 1);
}

TEST(Stubs, RefuseAnEmptyParcelAndOneOfAnotherInterface) {
    const RemoteNode node;
    EXPECT_NE(Send(node.binder(), INode::TRANSACTION_demand, [](AParcel*) {}), STATUS_OK);
    // The same object, believed to be a listener's.
    const SpAIBinder listener = ndk::SharedRefBase::make<Listener>()->asBinder();
    ndk::ScopedAParcel in;
    ndk::ScopedAParcel out;
    ASSERT_EQ(AIBinder_prepareTransaction(listener.get(), in.getR()), STATUS_OK);
    EXPECT_NE(
            AIBinder_transact(node.binder(), INode::TRANSACTION_demands, in.getR(), out.getR(), 0),
            STATUS_OK);
    Who who;
    EXPECT_TRUE(node->who(&who).isOk());
}

TEST(Stubs, RefuseArraysThatCannotBeAndWrongBindersAlsoWhereNullIsAllowed) {
    const RemoteNode node;
    const SpAIBinder listener = ndk::SharedRefBase::make<Listener>()->asBinder();
    for (int32_t length : {-1, -2})
        EXPECT_NE(Send(node.binder(), INode::TRANSACTION_fill,
                       [&](AParcel* in) { AParcel_writeInt32(in, length); }),
                  STATUS_OK);
    EXPECT_EQ(Send(node.binder(), INode::TRANSACTION_keep,
                   [&](AParcel* in) { AParcel_writeStrongBinder(in, listener.get()); }),
              STATUS_BAD_TYPE);
    std::shared_ptr<INode> kept;
    ASSERT_TRUE(node->kept(&kept).isOk());
    EXPECT_EQ(kept, nullptr);
}

TEST(Proxies, PassNoNullOnWhereNoneMayBe) {
    const RemoteNode node;
    const auto own = ndk::SharedRefBase::make<Node>();
    EXPECT_FALSE(node->demand("", Inner(), nullptr, {}, own->asBinder()).isOk());
    EXPECT_FALSE(node->demand("", Inner(), own, {nullptr}, own->asBinder()).isOk());
    EXPECT_FALSE(node->demand("", Inner(), own, {}, nullptr).isOk());
    int32_t demands = -1;
    ASSERT_TRUE(node->demands(&demands).isOk());
    EXPECT_EQ(demands, 0);
    // Nor do they accept one for a result.
    SpAIBinder back;
    EXPECT_EQ(node->echoBy(own, nullptr, &back).getStatus(), STATUS_UNEXPECTED_NULL);
}

}  // namespace
}  // namespace calls_test
