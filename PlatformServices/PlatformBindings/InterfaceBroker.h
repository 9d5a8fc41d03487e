/// @file
/// Interface broker binding: named interface objects shared between modules.
#pragma once

#include <cstdint>
#include <string>

/// Polymorphic base of every object registered with the broker.
class IInterface {
public:
    virtual ~IInterface() = default;
    /// A text for the platform's use; the library leaves it empty.
    std::string name;
};

/// The process-wide broker. Its state is the platform's own.
class InterfaceBroker {
public:
    /// The broker of the process; never null.
    static InterfaceBroker* getInstance();

    /// Registers `iface` under `name`. Result: below 32768 success, 32768
    /// (TickResult::FirstError) and above refusal (for example a name that
    /// is taken).
    uint32_t registerInterface(const std::string& name, IInterface* iface);

    /// Withdraws the object registered under `name`; when `removed` is not
    /// null it receives the removed object (null when there was none).
    uint32_t unregisterInterface(const std::string& name, IInterface** removed);

    /// Clients' look-up; null when nothing is registered under `name`.
    IInterface* getInterface(const std::string& name);
};
