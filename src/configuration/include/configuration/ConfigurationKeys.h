// The names of the crash reporter's settings, grouped by type: a setting is found only under its own type.
// DefaultConfiguration.cpp gives the defaults. The service's own answers depend on none of them: they are
// part of the layers' contract with the crash reporter, which has the same file and store.
#pragma once

namespace Torv::ConfigurationKeys {

// Strings: places on the device, where and how a report is uploaded, and what the upload says about its
// origin.
// "" means that there is none.
inline constexpr char kPstoreDirName[] = "crash-reporter-pstore-dir-name";
inline constexpr char kReportDirName[] = "crash-reporter-report-dir-name";
inline constexpr char kAppId[] = "crash-reporter-app-id";
inline constexpr char kUserAgent[] = "crash-reporter-user-agent";
inline constexpr char kUrl[] = "crash-reporter-url";
inline constexpr char kUuidFilename[] = "crash-reporter-uuid-filename";
inline constexpr char kUploadCipherList[] = "crash-reporter-upload-cipher-list";
inline constexpr char kUploadCaCertificates[] = "crash-reporter-upload-ca-certificates-file-name";
inline constexpr char kUploadCertPinningKey[] = "crash-reporter-upload-cert-pinning-public-key";
inline constexpr char kHeaders[] = "crash-reporter-headers";
inline constexpr char kReportSource[] = "crash-reporter-report-source";
inline constexpr char kReportSourceRef[] = "crash-reporter-report-source-ref";

// Bools: features of the crash reporter that are on or off. kUploadCertVerifyPeer is the check of the
// server's certificate.
inline constexpr char kLocalBuildEnable[] = "crash-reporter-local-build-enable";
inline constexpr char kLogcatEnable[] = "crash-reporter-logcat-enable";
inline constexpr char kUploadCertVerifyPeer[] = "crash-reporter-upload-cert-verify-peer";
inline constexpr char kWtfReportEnable[] = "crash-reporter-wtf-report-enable";
inline constexpr char kInvokeExitTelemetryEnable[] = "crash-reporter-invoke-exit-telemetry-enable";

// Unsigned numbers of 16 bits: seconds, except for kMaxCrashesInReportDir, which counts crashes.
inline constexpr char kUploadInitialRetryDelay[] = "crash-reporter-upload-to-server-initial-retry-time-delay";
inline constexpr char kUploadMaxRetryDelay[] = "crash-reporter-upload-to-server-max-retry-time-delay";
inline constexpr char kUploadDelayAfterBoot[] =
    "crash-reporter-upload-delay-until-check-for-crashes-after-boot";
inline constexpr char kMaxCrashesInReportDir[] = "crash-reporter-max-number-of-crashes-in-report-dir";
inline constexpr char kRetainReportFor[] = "crash-reporter-retain-crash-report-for-x-seconds";

// Signed numbers of 32 bits: lines of log, seconds of log, minutes of the rate limit's window,
// and numbers of crashes in that window.
inline constexpr char kLogcatTailCount[] = "crash-reporter-logcat-tail-count";
inline constexpr char kLogcatTailSeconds[] = "crash-reporter-logcat-tail-seconds";
inline constexpr char kRateLimitTimeWindow[] = "crash-reporter-rate-limiting-time-window";
inline constexpr char kRateLimitMaxCrashes[] = "crash-reporter-rate-limiting-max-reported-crashes";
inline constexpr char kRateLimitMaxCrashesPerProcess[] =
    "crash-reporter-rate-limiting-max-reported-crashes-per-process";

// A map of strings: what to add to each error report.
inline constexpr char kErrorExtraData[] = "crash-reporter-error-extra-data";

// An int that only the preferences store holds: the version of its values.
inline constexpr char kKeyValueVersion[] = "crash-reporter-key-value-version";

}  // namespace Torv::ConfigurationKeys
