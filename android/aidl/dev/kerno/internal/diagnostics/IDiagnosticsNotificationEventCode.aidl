package dev.kerno.internal.diagnostics;

/** The system events that the notification service takes; any other value is refused. */
@Backing(type="int")
enum IDiagnosticsNotificationEventCode {
    APPLICATION_CRASHED = 0,
    APPLICATION_NOT_RESPONDING = 1,
}
