// The names under which the system context is read and reported, all in one place.
#pragma once

namespace Torv::OS::Diagnostics::ContextKeys {

// Keys of the context map.
inline constexpr char kBuildTags[] = "build_tags";                 // the property's value
inline constexpr char kBuildFingerprint[] = "build_fingerprint";   // the property's value
inline constexpr char kDiffNumber[] = "quillet_diff_number";       // the code review of the build
inline constexpr char kDiffVersion[] = "quillet_diff_version";     // its revision
inline constexpr char kCiId[] = "pebblor_id";                      // the continuous-integration run
inline constexpr char kCiSessionContext[] = "ci_session_context";  // the test-automation session, JSON
inline constexpr char kCiTestContext[] = "ci_test_context";        // the test-automation test, JSON

// Names within the build tags.
inline constexpr char kDiffNumberTag[] = "quillet_diff_number";
inline constexpr char kDiffVersionTag[] = "quillet_version_number";  // differs from its context key
inline constexpr char kCiIdTag[] = "pebblor_id";

// Keys of the configuration, both strings.
inline constexpr char kSessionContextSetting[] = "vambrik-automation-session-context-json";
inline constexpr char kTestContextSetting[] = "vambrik-automation-test-context-json";

// System properties.
inline constexpr char kBuildTagsProperty[] = "ro.system.build.tags";
inline constexpr char kBuildFingerprintProperty[] = "ro.build.fingerprint";

}  // namespace Torv::OS::Diagnostics::ContextKeys
