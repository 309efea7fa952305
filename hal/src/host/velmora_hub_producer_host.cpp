#define LOG_TAG "velmora_producer_host"

#include "host/velmora_hub_producer_host.h"

#include <android-base/logging.h>
#include <android/binder_manager.h>

#include <string>

#include "worker/callable.h"

namespace aidl::vendor::quorin::velmora_hub::host {

namespace {

using ::aidl::android::hardware::biometrics::Callable;

constexpr size_t kMaxQueueSize = 100;

}  // namespace

VelmoraHubProducerHost::VelmoraHubProducerHost()
        : worker_(std::make_shared<WorkerThread>(kMaxQueueSize)) {}

void VelmoraHubProducerHost::AddProducer(const std::shared_ptr<IHostedProducer>& producer) {
    LOG(INFO) << "Adding producer for signal " << producer->GetDescriptor().signalId;
    worker_->schedule(Callable::wrap([this, producer] { producers_.push_back(producer); }));
}

void VelmoraHubProducerHost::StartAll() {
    worker_->schedule(Callable::wrap([this] { Start(); }));
}

void VelmoraHubProducerHost::Start() {
    if (started_ || (manager_ == nullptr && !FindManager())) return;
    started_ = true;
    for (const auto& producer : producers_) {
        LOG(INFO) << "Starting producer for signal " << producer->GetDescriptor().signalId;
        producer->OnStart(manager_);
    }
}

bool VelmoraHubProducerHost::FindManager() {
    const std::string name = std::string(IVelmoraHubProducerManager::descriptor) + "/default";
    if (!AServiceManager_isDeclared(name.c_str())) {
        LOG(ERROR) << "Producer manager service not declared: " << name;
        return false;
    }
    manager_ = IVelmoraHubProducerManager::fromBinder(
            ::ndk::SpAIBinder(AServiceManager_waitForService(name.c_str())));
    if (manager_ == nullptr) LOG(ERROR) << "Failed to get IVelmoraHubProducerManager from binder";
    return manager_ != nullptr;
}

}  // namespace aidl::vendor::quorin::velmora_hub::host
