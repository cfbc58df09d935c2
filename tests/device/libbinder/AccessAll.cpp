// The service manager's access check for a machine without a policy: everyone may find, add and list. The
// caller's identity is still taken from the driver, security context included.

#include <binder/IPCThreadState.h>

#include "Access.h"

namespace android {

Access::Access() = default;
Access::~Access() = default;

Access::CallingContext Access::getCallingContext() {
  IPCThreadState* ipc = IPCThreadState::self();
  const char* sid = ipc->getCallingSid();
  return {ipc->getCallingPid(), ipc->getCallingUid(), sid != nullptr ? sid : ""};
}

bool Access::canFind(const CallingContext&, const std::string&) {
  return true;
}
bool Access::canAdd(const CallingContext&, const std::string&) {
  return true;
}
bool Access::canList(const CallingContext&) {
  return true;
}

}  // namespace android
