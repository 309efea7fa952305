// Labels: memory
// The service manager's object called in its own process: what its parcels may hold, and what
// cannot be reached with the client's functions.
#include "service_manager.h"

#include <android/binder_parcel_utils.h>
#include <android/binder_stability.h>
#include <gtest/gtest.h>

#include "platform/binder/tests/local_object.h"
#include "platform/binder/tests/parcels.h"

namespace host {
namespace {

Manifest OneDeclared() {
    Manifest manifest;
    std::string error;
    manifest.AddText("m.xml",
                     "<manifest><hal format=\"aidl\"><name>p</name><fqname>I/d</fqname></hal>"
                     "</manifest>",
                     &error);
    return manifest;
}

class ServiceManagerCalls : public testing::Test {
  protected:
    template <typename Write, typename Read>
    binder_status_t Call(transaction_code_t code, const Write& write, const Read& read) {
        ndk::ScopedAParcel out;
        AParcel* in = nullptr;
        EXPECT_EQ(AIBinder_prepareTransaction(object_.get(), &in), STATUS_OK);
        EXPECT_EQ(write(in), STATUS_OK);
        const binder_status_t status = AIBinder_transact(object_.get(), code, &in, out.getR(), 0);
        return status == STATUS_OK ? read(out.get()) : status;
    }

    binder_exception_t Add(const std::string& name, const ndk::SpAIBinder& service) {
        AddReply reply;
        EXPECT_EQ(Call(
                          kAddService,
                          [&](AParcel* in) {
                              return WriteAddRequest({name, service}, in);
                          },
                          [&](const AParcel* out) { return ReadAddReply(out, &reply); }),
                  STATUS_OK);
        return reply.exception;
    }

    binder_status_t Find(transaction_code_t code, const std::string& name,
                         ndk::SpAIBinder* service) {
        return Call(
                code, [&](AParcel* in) { return WriteName(name, in); },
                [&](const AParcel* out) { return ReadService(out, service); });
    }

    std::vector<ServiceInfo> Page(const std::string& after) {
        std::vector<ServiceInfo> page;
        EXPECT_EQ(Call(
                          kListServices, [&](AParcel* in) { return WriteName(after, in); },
                          [&](const AParcel* out) { return ReadPage(out, &page); }),
                  STATUS_OK);
        return page;
    }

    std::atomic<int> alive_{0};  // outlives the manager, which holds services
    ServiceManager manager_{OneDeclared()};
    ndk::SpAIBinder object_ = manager_.NewBinder();
    ndk::SpAIBinder service_ = MakeLocalObject(&alive_);
    ndk::SpAIBinder found_;
};

TEST_F(ServiceManagerCalls, NeverBlockWhoCannotBeAnsweredLater) {
    EXPECT_EQ(Find(kWaitForService, "n", &found_), STATUS_INVALID_OPERATION);
    EXPECT_EQ(Find(kGetService, "p.I/d", &found_), STATUS_INVALID_OPERATION);
    EXPECT_EQ(Find(kGetService, "n", &found_), STATUS_OK);
}

// The client asks for none of these; a peer that speaks by itself may.
TEST_F(ServiceManagerCalls, CheckWhatAPeerSends) {
    AIBinder_markVintfStability(service_.get());
    EXPECT_EQ(Add("n", service_), EX_ILLEGAL_ARGUMENT);
    EXPECT_EQ(Add("p.I/d", service_), EX_NONE);
    EXPECT_EQ(Add("n", nullptr), EX_ILLEGAL_ARGUMENT);
    EXPECT_EQ(Add("", service_), EX_ILLEGAL_ARGUMENT);
    EXPECT_EQ(Add("a\nb", service_), EX_ILLEGAL_ARGUMENT);
    EXPECT_EQ(Find(kCheckService, "a b", &found_), STATUS_BAD_VALUE);
    EXPECT_EQ(Find(kWaitForService, std::string(128, 'n'), &found_), STATUS_BAD_VALUE);
    EXPECT_EQ(Find(kCheckService, std::string(5000, 'n'), &found_), STATUS_NO_MEMORY);
    EXPECT_EQ(Find(77, "n", &found_), STATUS_UNKNOWN_TRANSACTION);
    for (transaction_code_t code = kAddService; code <= kListServices; ++code) {
        const auto nothing = [](auto*) { return binder_status_t{STATUS_OK}; };
        EXPECT_EQ(Call(code, nothing, nothing), STATUS_NOT_ENOUGH_DATA) << code;
    }
}

TEST_F(ServiceManagerCalls, ListPageByPage) {
    for (int i = 0; i < 600; ++i)
        ASSERT_EQ(Add("n" + std::to_string(1000 + i), service_), EX_NONE);
    std::vector<std::string> names;
    std::vector<ServiceInfo> page;
    do {
        page = Page(names.empty() ? "" : names.back());
        for (const ServiceInfo& info : page)
            names.push_back(info.name);
    } while (page.size() == kPageEntries);
    ASSERT_EQ(names.size(), 601u);
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
    EXPECT_EQ(names.front(), "n1000");
    EXPECT_EQ(names.back(), "p.I/d");
}

TEST(ServiceManagerPage, IsRefusedByTheClientIfItsCountMakesNoSense) {
    for (const int32_t count : {-1, 257, INT32_MAX}) {
        std::vector<ServiceInfo> page;
        EXPECT_EQ(ReadPage(ParcelOfWords({count}).get(), &page), STATUS_BAD_VALUE) << count;
    }
}

}  // namespace
}  // namespace host
