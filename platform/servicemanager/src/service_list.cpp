#include "host/service_list.h"

#include <iterator>

#include "publications.h"

namespace host {

bool ListServices(std::vector<ServiceInfo>* services, std::string* error) {
    services->clear();
    std::vector<ServiceInfo> page;
    do {
        const std::string after = services->empty() ? "" : services->back().name;
        const binder_status_t status = Publications::Get().connection().Call(
                "ListServices", kListServices,
                [&after](AParcel* parcel) { return WriteName(after, parcel); },
                [&page](const AParcel* parcel) { return ReadPage(parcel, &page); }, error);
        if (status != STATUS_OK) return false;
        // A page that does not go on behind the last one would never end.
        if (!page.empty() && page.front().name <= after) {
            *error = "the service manager's list is out of order";
            return false;
        }
        services->insert(services->end(), page.begin(), page.end());
    } while (page.size() == kPageEntries);
    return true;
}

}  // namespace host
