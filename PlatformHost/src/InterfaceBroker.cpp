// The reference interface broker: a thread-safe map from interface name to the
// object that offers it. The broker never owns the objects.

#include "InterfaceBroker.h"
#include "ZynSupport/GuardedMutex.h"

#include <map>
#include <string>

#include "PlatformHost/HostResultCodes.h"

namespace {

namespace result = platform_host::host_result;

struct Registry {
    zyn_support::GuardedMutex mutex;
    std::map<std::string, IInterface*> interfaces ZYN_GUARDED_BY(mutex);
};

// Interfaces are registered from static constructors of other libraries and
// withdrawn from their static destructors: the map is created on first use and
// never destroyed.
Registry& registry() {
    static auto* const instance = new Registry;
    return *instance;
}

}  // namespace

InterfaceBroker* InterfaceBroker::getInstance() {
    // The broker has no data members (its state is the registry above), so
    // this object is constant-initialised and exists before any constructor runs.
    static InterfaceBroker instance;
    return &instance;
}

uint32_t InterfaceBroker::registerInterface(const std::string& name, IInterface* iface) {
    if (iface == nullptr) {
        return result::BrokerBadArgument;
    }
    Registry& reg = registry();
    const zyn_support::GuardedLock lock(reg.mutex);
    const bool inserted = reg.interfaces.emplace(name, iface).second;
    return inserted ? result::Success : result::InterfaceNameTaken;
}

uint32_t InterfaceBroker::unregisterInterface(const std::string& name, IInterface** removed) {
    Registry& reg = registry();
    const zyn_support::GuardedLock lock(reg.mutex);
    const auto entry = reg.interfaces.extract(name);
    if (removed != nullptr) {
        *removed = entry ? entry.mapped() : nullptr;
    }
    return entry ? result::Success : result::InterfaceNotRegistered;
}

IInterface* InterfaceBroker::getInterface(const std::string& name) {
    Registry& reg = registry();
    const zyn_support::GuardedLock lock(reg.mutex);
    const auto entry = reg.interfaces.find(name);
    return entry != reg.interfaces.end() ? entry->second : nullptr;
}
