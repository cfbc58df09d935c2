package dev.kerno.internal.diagnostics;

import android.os.PersistableBundle;
import dev.kerno.internal.diagnostics.IDiagnosticsNotificationEventCode;

/**
 * Told by system components that something happened. Registered with the service manager as
 * "DiagnosticsNotificationService".
 */
interface IDiagnosticsNotificationService {
    /** data must not be null; its contents are not used. */
    oneway void notifySystemEvent(IDiagnosticsNotificationEventCode code, in PersistableBundle data);
}
