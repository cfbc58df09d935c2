/* Publishes states to the diagnostics collector service of this machine, from C and from any language that
   can call C. All functions return 0 or a negated errno:

     -EINVAL     a text is null
     -EMSGSIZE   the texts are longer than 4000 bytes together; nothing is published
     -EAGAIN     the service's queue stayed full for 20 ms
     -ENOTCONN   no service can be reached; the runtime directory says which one is asked (TORV_RUNTIME_DIR)

   0 means that the service has the message in its queue. A service that does not take messages of the
   caller's user drops it and counts it; `diagctl status` shows that. A call waits for 20 ms at most. Texts
   are UTF-8, end in NUL, and are copied. Thread-safe. */
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Publishes the newest value of one state of a process. `pid` 0 is the calling process. */
int diagnostics_publish_state(int32_t pid, const char* key, const char* value);

/* Publishes the ids of the present telemetry session, for the whole machine. */
int diagnostics_publish_session(const char* service_session_id, const char* user_active_session_id);

#ifdef __cplusplus
}
#endif
