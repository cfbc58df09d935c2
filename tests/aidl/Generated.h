// The classes that the AIDL compiler makes of android/aidl/, in a namespace of their own: ours have the same
// names, and the interface's descriptor is a text and stays.
#pragma once

#include "dev/kerno/internal/diagnostics/BinderHeaders.h"

#define diagnostics generated_diagnostics  // NOLINT(readability-identifier-naming)
#include "generated/dev/kerno/internal/diagnostics/IDiagnosticsCollectorService.h"
#include "generated/dev/kerno/internal/diagnostics/IDiagnosticsNotificationService.h"
#undef diagnostics
