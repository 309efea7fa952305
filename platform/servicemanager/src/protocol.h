// The language between the service manager and its clients: codes, and the layout of each parcel as
// the order in which its functions write and read. Pure functions on parcels of the caller's; a
// read checks everything that it gives out, names included.
#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_ibinder.h>
#include <android/binder_parcel.h>

#include <string>
#include <vector>

#include "host/service_list.h"

namespace host {

enum ServiceManagerCode : transaction_code_t {
    kAddService = FIRST_CALL_TRANSACTION,  // AddRequest -> AddReply
    kCheckService,                         // name -> service
    kGetService,                           // name -> service, answered within 5 s
    kWaitForService,                       // name -> service, answered when there is one
    kIsDeclared,                           // name -> bool
    kListServices,                         // name, or "" -> page of the names behind it
};

// How many entries a page holds at most; a shorter one is the last.
constexpr size_t kPageEntries = 256;

struct AddRequest {
    std::string name;
    ndk::SpAIBinder service;
};

struct AddReply {
    binder_exception_t exception = EX_NONE;
    std::string reason;  // why not, for the log
};

binder_status_t WriteAddRequest(const AddRequest& request, AParcel* parcel);
binder_status_t ReadAddRequest(const AParcel* parcel, AddRequest* request);
binder_status_t WriteAddReply(const AddReply& reply, AParcel* parcel);
binder_status_t ReadAddReply(const AParcel* parcel, AddReply* reply);

// A name as it came: up to 4 KiB of any text, checked by who uses it. Longer: STATUS_NO_MEMORY.
binder_status_t WriteName(const std::string& name, AParcel* parcel);
binder_status_t ReadName(const AParcel* parcel, std::string* name);

// Null: no such service.
binder_status_t WriteService(const ndk::SpAIBinder& service, AParcel* parcel);
binder_status_t ReadService(const AParcel* parcel, ndk::SpAIBinder* service);

binder_status_t WriteFlag(bool flag, AParcel* parcel);
binder_status_t ReadFlag(const AParcel* parcel, bool* flag);

binder_status_t WritePage(const std::vector<ServiceInfo>& page, AParcel* parcel);
binder_status_t ReadPage(const AParcel* parcel, std::vector<ServiceInfo>* page);

// What serves the calls; the user data of the service manager's object.
class ServiceManagerStub {
  public:
    virtual ~ServiceManagerStub() = default;
    virtual binder_status_t OnTransact(transaction_code_t code, const AParcel* in,
                                       AParcel* out) = 0;
};

// The class of the service manager's object, the same for both sides; the transport knows the
// object by its descriptor, "servicemanager". AIBinder_new() with it takes a ServiceManagerStub*,
// which must outlive the object.
const AIBinder_Class* ServiceManagerClass();

}  // namespace host
