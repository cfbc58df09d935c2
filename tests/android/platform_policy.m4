dnl A stub of an image's own policy: the classes, macros, attributes and types that android/sepolicy uses, and the
dnl platform's rules that it must not break. m4 puts the policy under test in at SUBJECT, the labels of files at
dnl LABELS. The macros grant what the platform's macros of these names grant, reduced to the classes below.
changequote(`[', `]')dnl
define([r_file_perms], [{ getattr open read ioctl lock map watch watch_reads }])dnl
define([init_daemon_domain], [
allow init $1_exec:file { getattr open read execute map };
allow init $1:process transition;
allow $1 $1_exec:file { entrypoint getattr open read execute map };
type_transition init $1_exec:process $1;
])dnl
define([binder_use], [
allow $1 servicemanager:binder { call transfer };
allow servicemanager $1:binder { call transfer };
allow servicemanager $1:process getattr;
])dnl
define([binder_call], [
allow $1 $2:binder { call transfer };
allow $2 $1:binder transfer;
allow $1 $2:fd use;
])dnl
define([add_service], [
allow $1 $2:service_manager { add find };
neverallow { domain -$1 } $2:service_manager add;
])dnl
define([get_prop], [allow $1 $2:file { getattr open read map };])dnl
define([set_prop], [
allow $1 $2:property_service set;
get_prop($1, $2)
])dnl
define([system_restricted_prop], [
type $1, property_type, system_property_type, system_restricted_property_type;
neverallow { domain -coredomain } $1:property_service set;
])dnl

class process
class file
class lnk_file
class dir
class fd
class binder
class service_manager
class property_service
class capability
class capability2
class cap_userns
class cap2_userns
sid kernel

common file { getattr open read ioctl lock map watch watch_reads create write append execute }
class file inherits file { entrypoint }
class lnk_file inherits file
class dir inherits file { search add_name remove_name }
class fd { use }
class process { transition getattr getpgid }
class binder { call transfer }
class service_manager { add find }
class property_service { set }
class capability { sys_ptrace kill }
class capability2 { syslog }
class cap_userns { sys_ptrace kill }
class cap2_userns { syslog }
define([global_capability_class_set], [{ capability capability2 cap_userns cap2_userns }])dnl

sensitivity s0;
dominance { s0 }
category c0;
level s0:c0;
mlsconstrain file { read } (l1 dom l2);

attribute domain;
attribute coredomain;
attribute hal_health_server;
attribute exec_type;
attribute file_type;
attribute fs_type;
attribute sysfs_type;
attribute data_file_type;
attribute system_file_type;
attribute service_manager_type;
attribute property_type;
attribute system_property_type;
attribute system_restricted_property_type;

type init, domain, coredomain;
type servicemanager, domain, coredomain;
type system_server, domain, coredomain;
type flags_health_check, domain, coredomain;
type statsd, domain, coredomain;
type dumpstate, domain, coredomain;
type gmscore_app, domain, coredomain;
type gpuservice, domain, coredomain;
type incidentd, domain, coredomain;
type keystore, domain, coredomain;
type mediametrics, domain, coredomain;
type platform_app, domain, coredomain;
type priv_app, domain, coredomain;
type shell, domain, coredomain;
type stats, domain, coredomain;
type surfaceflinger, domain, coredomain;
type system_app, domain, coredomain;
type traceur_app, domain, coredomain;
type healthd, domain, coredomain;
type ueventd, domain, coredomain;
type recovery, domain, coredomain;
type charger, domain, coredomain;
type hal_health_default, domain, hal_health_server;

type stats_service, service_manager_type;
type statsmanager_service, service_manager_type;
type proc_meminfo, fs_type;
type proc_pressure_cpu, fs_type;
type proc_pressure_io, fs_type;
type proc_pressure_mem, fs_type;
type proc_stat, fs_type;
type sysfs, fs_type, sysfs_type;
type sysfs_batteryinfo, fs_type, sysfs_type;
type build_prop, property_type, system_property_type;
type fingerprint_prop, property_type, system_property_type;
type method_trace_data_file, file_type, data_file_type;
type system_data_file, file_type, data_file_type;

# Who may find statsd's own service.
neverallow {
    domain
    -dumpstate -gmscore_app -gpuservice -incidentd -keystore -mediametrics -platform_app -priv_app -shell -stats
    -statsd -surfaceflinger -system_app -system_server -traceur_app
} stats_service:service_manager find;

# Who of the system may read the battery's files.
neverallow {
    coredomain
    -healthd -shell -ueventd -recovery -charger -incidentd
} sysfs_batteryinfo:file { open read };

# What a build that measures code coverage lets every domain do.
allow domain method_trace_data_file:file { create write append getattr open read };

include(SUBJECT)
role r;
role r types domain;
user u roles { r object_r } level s0 range s0 - s0;
sid kernel u:r:init:s0
include(LABELS)
