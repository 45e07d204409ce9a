// What a service tells the manager that started it, where there is one.
#pragma once

namespace zepho {

enum class ServiceState { ready, stopping };

// Never fails: without a manager, or with one that does not listen, nothing happens. Any thread.
void notifyServiceManager(ServiceState state);

}  // namespace zepho
