package dev.kerno.internal.diagnostics;

import android.os.PersistableBundle;

/**
 * What crash and error reporters ask at the moment they build a report. Registered with the service manager
 * as "DiagnosticsCollectorService". docs/interfaces.md gives the layout of each bundle.
 */
interface IDiagnosticsCollectorService {
    /**
     * The newest value of every state key of one process. data stays empty where nothing is known of the
     * process. name must not be null; its value is not used.
     */
    void getApplicationStateDataForProcess(int pid, String name, out PersistableBundle data);

    /** The same for every process of which anything is known, the lately dead among them. */
    void getAllAvailableApplicationStateData(out PersistableBundle data);

    /** Which system this is, how it has fared of late, and the states that belong to no process. */
    void getSystemContextData(out PersistableBundle data);
}
