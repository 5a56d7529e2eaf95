// The type vocabulary: complex (xsi) type names, IDs 101-389,
// strictly by position, four rows a line (the comment gives the first ID).
// Wire contract: never reorder or remove a row; a retired ID stays as an
// EMPTY_ROW so that every later ID keeps its value. Type IDs are a space of
// their own: 101-389 overlapping the namespace IDs is intended.
#include "qkl/vocabulary/QKLDefaultMap.h"

namespace QKL {
namespace Internal {
namespace {

const char* const kTypeRows[] = {
    /* 101 */ "alertmType", "resource_alertType", "authmType", "security_principalType",
    /* 105 */ "sp_modType", "backupmType", "backup_optionsType", "restore_optionsType",
    /* 109 */ "selective_restore_optionsType", "backupType", "list_optionsType", "search_optionsType",
    /* 113 */ "remove_optionsType", "server_groupType", "configType", "networkType",
    /* 117 */ "osType", "env_statusType", "qosType", "env_configType",
    /* 121 */ "venv_configType", "envType", "processesType", "load_avgType",
    /* 125 */ "cpu_loadType", "cpuType", "transferType", "system_nodeType",
    /* 129 */ "resourceType", "intervalType", "statsType", "net_addressType",
    /* 133 */ "net_classType", "ip_rangeType", "sample_confType", "interfaceType",
    /* 137 */ "sys_infoType", "ps_infoType", "load_avg_statsType", "alert_dataType",
    /* 141 */ "ip_addressType", "env_resourceType", "ip_poolType", "usageType",
    /* 145 */ "root_credentialType", "credentialType", "tokenType", "auth_nameType",
    /* 149 */ "connection_infoType", "eid_listType", "vt_infoType", "vt_settingsType",
    /* 153 */ "userType", "groupType", "packageType", "event_dataType",
    /* 157 */ "named_listType", "modType", "realmType", "eventType",
    /* 161 */ "infoType", "aceType", "security_descriptorType", "security_objectType",
    /* 165 */ "env_security_objectType", "net_deviceType", "net_nicType", "computermType",
    /* 169 */ "diskType", "partitionType", "systemType", "data_storagemType",
    /* 173 */ "ds_locationType", "ds_configurationType", "ds_object_infoType", "devmType",
    /* 177 */ "mount_deviceType", "directorType", "dirmType", "entryType",
    /* 181 */ "controlType", "dir_realmType", "vlv_controlType", "sort_controlType",
    /* 185 */ "envmType", "env_event_monType", "env_config_event_dataType", "env_status_event_dataType",
    /* 189 */ "env_samplemType", "event_logType", "filerType", "navigateType",
    /* 193 */ "navigate_wildType", "fileType", "credType", "firewallmType",
    /* 197 */ "port_rangeType", "ruleType", "ftpcType", "httpcType",
    /* 201 */ "directiveType", "navigatorType", "treeType", "sectionType",
    /* 205 */ "blockType", "commentType", "parameterType", "limitType",
    /* 209 */ "lim_configType", "mail_configuratorType", "mlistType", "mailerType",
    /* 213 */ "migratorType", "cloneoptionsType", "networkmType", "ip_routeType",  // 214 and 275 differ only by an underscore: both kept
    /* 217 */ "net_vlanType", "net_bridgeType", "op_logType", "pagerType",
    /* 221 */ "param_nameType", "param_valueType", "row_setType", "rowType",
    /* 225 */ "perf_monType", "perf_statType", "classType", "pkgmType",
    /* 229 */ "pkg_paramsType", "package_rpmType", "pkg_cmdType", "packagesType",
    /* 233 */ "processmType", "process_infoType", "progress_eventType", "packet_headerType",
    /* 237 */ "operatorType", "operator_functionalType", "operator_periodicType", "set_periodType",
    /* 241 */ "start_monitorType", "stop_monitorType", "authType", "event_configurationType",
    /* 245 */ "periodic_configurationType", "routeType", "dataType", "resourcemType",
    /* 249 */ "resource_poolType", "resource_ip_poolType", "resource_ipType", "res_logType",
    /* 253 */ "logType", "perf_dataType", "schedulerType", "taskType",
    /* 257 */ "conditionType", "task_infoType", "securitymType", "servicemType",
    /* 261 */ "serviceType", "service_actionType", "sessionmType", "sessionType",
    /* 265 */ "snapshotmType", "snapshotType", "restart_event_dataType", "startup_event_dataType",
    /* 269 */ "voc_parameterType", "voc_opType", "usermType", "package_linuxType",
    /* 273 */ "package_debType", "backup_storagemType", "clone_optionsType", "p2v_migrate_optionsType",  // 275: see 214
    /* 277 */ "v2v_migrate_optionsType", "v2p_migrate_optionsType", "infrastructuremType", "unit_infoType",
    /* 281 */ "unitType", "get_info_optionsType", "get_env_info_optionsType", "backup_dataType",
    /* 285 */ "env_backup_dataType", "backupm_configType", "pkg_setup_cmdType", "roleType",
    /* 289 */ "role_assignmentType", "scopeType", "id_scopeType", "voc_idType",
    /* 293 */ "vocabularyType", "triggerType", "daily_triggerType", "weekly_triggerType",
    /* 297 */ "monthly_triggerType", "monthly_day_of_week_triggerType", "once_triggerType", "server_group_alertType",
    /* 301 */ "common_deviceType", "windows_deviceType", "scsi_deviceType", "forward_optionsType",
    /* 305 */ "mount_optionsType", "exclude_listType", "hw_notesType", "backup_options_baseType",
    /* 309 */ "native_configType", "log_options_baseType", "log_optionsType", "loginType",
    /* 313 */ "packagemType", "proc_infoType", "relocatorType", "connectivity_infoType",
    /* 317 */ "ssoType", "applicationType", "server_group_configurationType", "computerm_configurationType",
    /* 321 */ "director_configurationType", "envm_configurationType", "event_log_configurationType", "filer_configurationType",
    /* 325 */ "infrastructurem_configurationType", "networkm_configurationType", "op_log_configurationType", "perf_mon_configurationType",
    /* 329 */ "proc_info_configurationType", "configurationType", "res_log_configurationType", "securitym_configurationType",
    /* 333 */ "servicem_configurationType", "sessionm_configurationType", "system_configurationType", "authm_configurationType",
    /* 337 */ "backupm_configurationType", "scheduler_configurationType", "ip_poolmType", "poolType",
    /* 341 */ "bindingType", "new_device_propertiesType", "compress_perf_dataType", "compressperfdataType",  // 343 and 344 differ only by underscores: both kept
    /* 345 */ "user_profileType", "personal_settingsType", "interface_settingsType", "browse_settingsType",
    /* 349 */ "desktop_settingsType", "browse_listType", "browse_columnType", "screenType",
    /* 353 */ "screen_settingsType", "dashboard_sectionType", "dashboardType", "profile_filterType",
    /* 357 */ "profileType", "exprType", "comparison_exprType", "isnull_exprType",
    /* 361 */ "in_exprType", "binary_comparison_exprType", "between_exprType", "logical_exprType",
    /* 365 */ "functionType", "logical_expr_listType", EMPTY_ROW, "nodeType",  // reserved: 367
    /* 369 */ "ip_allocationType", "folderattributesType", "management_nodeType", EMPTY_ROW,  // reserved: 372; 370 and 387 differ only by an underscore: both kept
    /* 373 */ "disk_image_libraryType", "file_shareType", "disk_imageType", "image_infoType",
    /* 377 */ "policy_ruleType", EMPTY_ROW, "policymType", "policyType",  // reserved: 378
    /* 381 */ "assignmentType", "assignment_policyType", "policyslType", "env_sampleType",
    /* 385 */ "file_listType", "sample_managerType", "folder_attributesType", "audit_event_dataType",  // 387: see 370
    /* 389 */ "validationType",
};

static_assert(sizeof(kTypeRows) / sizeof(kTypeRows[0]) == TYPE_COUNT, "one row per type ID 101-389");

}  // namespace

const char* const* typeRows() { return kTypeRows; }

}  // namespace Internal
}  // namespace QKL
