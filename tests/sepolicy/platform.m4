# A stand-in for the platform's part of the policy, no more than android/sepolicy needs of it: the language's own
# declarations, then attributes, types and macros under the platform's names, then those of its neverallow rules that bear
# on the service. Written from knowledge of the platform, not taken from it: an image's own rules have the last word.
#
# The macros first. userdebug_or_eng(RULES) gives them when m4 runs with -D target_build_variant=userdebug.
define(`userdebug_or_eng', ifelse(target_build_variant, `userdebug', `$1', `'))
define(`r_file_perms', `{ getattr open read ioctl lock map }')
define(`w_file_perms', `{ open append write lock map }')
define(`rw_file_perms', `{ getattr open read ioctl lock map append write }')
define(`rx_file_perms', `{ getattr open read ioctl lock map execute }')
define(`create_file_perms', `{ create rename setattr unlink getattr open read ioctl lock map append write }')
define(`r_dir_perms', `{ open getattr read search ioctl lock }')
define(`rw_dir_perms', `{ open getattr read search ioctl lock add_name remove_name write }')
define(`r_dir_file', `allow $1 $2:dir r_dir_perms;
allow $1 $2:{ file lnk_file } r_file_perms;')
define(`init_daemon_domain', `allow init $1_exec:file { getattr open read execute map };
allow init $1:process transition;
allow $1 $1_exec:file { entrypoint open read execute getattr map };
type_transition init $1_exec:process $1;')
define(`set_prop', `allow $1 $2:property_service set;
allow $1 $2:file r_file_perms;')
define(`binder_use', `allow $1 binder_device:chr_file rw_file_perms;
allow $1 servicemanager:binder { call transfer };')
define(`binder_call', `allow $1 $2:binder { call transfer };
allow $2 $1:binder transfer;')
define(`wakelock_use', `allow $1 hwbinder_device:chr_file rw_file_perms;
binder_call($1, system_suspend_server)')
dnl
class process
class capability
class file
class dir
class lnk_file
class chr_file
class blk_file
class system
class binder
class property_service
class service_manager
sid kernel
common file { ioctl read write create getattr setattr lock append map unlink rename execute open }
class process { transition signal sigkill }
class capability { dac_override dac_read_search kill sys_module sys_ptrace }
class file inherits file { execute_no_trans entrypoint }
class dir inherits file { add_name remove_name search }
class lnk_file inherits file
class chr_file inherits file
class blk_file inherits file
class system { module_load }
class binder { call transfer }
class property_service { set }
class service_manager { find }
sensitivity s0;
dominance { s0 }
category c0;
level s0:c0;
mlsconstrain file create (l1 eq l2);

attribute domain;
attribute coredomain;
attribute vendor_executes_system_violators;
attribute binder_in_vendor_violators;
attribute data_between_core_and_vendor_violators;
attribute dev_type;
attribute fs_type;
attribute sysfs_type;
attribute proc_type;
attribute debugfs_type;
attribute file_type;
attribute exec_type;
attribute data_file_type;
attribute core_data_file_type;
attribute vendor_file_type;
attribute system_file_type;
attribute property_type;

type kernel, domain, coredomain;
type init, domain, coredomain;
type servicemanager, domain, coredomain;
type system_server, domain, coredomain;
type system_suspend_server, domain, coredomain;
type device, dev_type;
type block_device, dev_type;
type misc_block_device, dev_type;
type binder_device, dev_type;
type hwbinder_device, dev_type;
type sysfs, fs_type, sysfs_type;
type sysfs_batteryinfo, fs_type, sysfs_type;
type sysfs_thermal, fs_type, sysfs_type;
type sysfs_usermodehelper, fs_type, sysfs_type;
type proc, fs_type, proc_type;
type proc_cmdline, fs_type, proc_type;
type proc_cpuinfo, fs_type, proc_type;
type proc_meminfo, fs_type, proc_type;
type proc_modules, fs_type, proc_type;
type proc_security, fs_type, proc_type;
type debugfs, fs_type, debugfs_type;
type shell_exec, exec_type, file_type, system_file_type;
type toolbox_exec, exec_type, file_type, system_file_type;
type system_file, file_type, system_file_type;
type vendor_shell_exec, exec_type, file_type, vendor_file_type;
type vendor_toolbox_exec, exec_type, file_type, vendor_file_type;
type vendor_file, file_type, vendor_file_type;
type mnt_vendor_file, file_type;
type system_data_root_file, file_type, data_file_type, core_data_file_type;
type powerctl_prop, property_type;
type activity_service;
type power_service;
role r;
role r types domain;
role object_r;

# File modes hold for root too, except in a few of the platform's own domains.
neverallow { domain -init } self:capability { dac_override dac_read_search };
neverallow { domain -init -system_server } self:capability sys_ptrace;
# A vendor's domain keeps to its own partition, its own /data and its own binder.
neverallow { domain -coredomain -vendor_executes_system_violators } system_file_type:file { entrypoint execute execute_no_trans };
neverallow { domain -coredomain -data_between_core_and_vendor_violators } core_data_file_type:file { create open write append };
neverallow { domain -coredomain -binder_in_vendor_violators } binder_device:chr_file { open read write };
neverallow { domain -coredomain -binder_in_vendor_violators } servicemanager:binder call;
# General labels are no licence for devices, partitions and debugfs.
neverallow { domain -init } device:chr_file { open read write };
neverallow { domain -kernel -init } block_device:blk_file { open read write };
neverallow { domain -init } debugfs:file { open read write };
ifelse(target_build_variant, `userdebug', `', `neverallow { domain -init } misc_block_device:blk_file { open read write };')
# Nodes that name programs for the kernel to run, and its own protection.
neverallow { domain -init } { sysfs_usermodehelper proc_security }:file { append write };
# Modules come from the partitions that are verified.
neverallow domain ~{ system_file_type vendor_file_type }:system module_load;
