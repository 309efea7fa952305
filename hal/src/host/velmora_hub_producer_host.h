// Starts the hosted producers once the producer manager can be reached, on a thread of its own.
//
// Threads: AddProducer and StartAll may be called from any thread and return at once. The owner
// destroys the host from any other thread than the host's; that waits for what the thread is doing,
// the search for the producer manager included.

#pragma once

#include <aidl/vendor/quorin/velmora_hub/IVelmoraHubProducerManager.h>

#include <memory>
#include <vector>

#include "host/hosted_producer.h"
#include "worker/worker_thread.h"

namespace aidl::vendor::quorin::velmora_hub::host {

class VelmoraHubProducerHost {
  public:
    VelmoraHubProducerHost();

    // Queues the producer to be added. One that is added after the producers were started is never
    // started.
    void AddProducer(const std::shared_ptr<IHostedProducer>& producer);

    // Queues the start of all producers added before: waits for the producer manager, then calls
    // OnStart on each in turn. A search that fails is logged, and not tried again by itself; a
    // further call tries again. Once the manager was found it does nothing, as a producer expects
    // to be started once. A queue that is full loses the call, as it does in AddProducer, and
    // nobody is told.
    void StartAll();

  private:
    using WorkerThread = ::aidl::android::hardware::biometrics::WorkerThread;

    // On the worker.
    void Start();
    bool FindManager();

    // These three are the worker's tasks' alone.
    std::shared_ptr<IVelmoraHubProducerManager> manager_;
    std::vector<std::shared_ptr<IHostedProducer>> producers_;
    bool started_ = false;

    // Last, so that it ends first: its tasks hold a plain pointer to the host.
    std::shared_ptr<WorkerThread> worker_;
};

}  // namespace aidl::vendor::quorin::velmora_hub::host
