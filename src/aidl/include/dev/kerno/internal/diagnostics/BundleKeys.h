// The keys of the bundles that "DiagnosticsCollectorService" answers with. docs/interfaces.md shows the
// layouts.
#pragma once

namespace dev::kerno::internal::diagnostics::bundlekey {

// In the bundle of a process: its pid (int), and its states (bundle of strings).
inline constexpr char16_t kProcessId[] = u"processId";
inline constexpr char16_t kApplicationStateData[] = u"ApplicationStateData";

// In the bundle of a global namespace: its name (string), and its states (bundle of strings).
inline constexpr char16_t kGlobalNamespace[] = u"GlobalNamespace";
// Also in the answer about the system context: one bundle for each namespace.
inline constexpr char16_t kGlobalStateData[] = u"GlobalStateData";

// In the answer about the system context: the context's values (bundle of strings).
inline constexpr char16_t kSystemContextData[] = u"SystemContextData";

}  // namespace dev::kerno::internal::diagnostics::bundlekey
