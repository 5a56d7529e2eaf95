// Part 4.1: Default vocabularies. The edge-case bullets of the Part, the
// constraints on every table row, and the SearchTblItem trie.
#include "qkl/vocabulary/QKLDefaultMap.h"
#include "qkl/vocabulary/SearchTblItem.h"

#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <cstring>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "qkl/common/QKLAssert.h"

namespace {

using QKL::Internal::CharArray;
using QKL::Internal::SearchTblItem;

void silentHandler(const char*, const char*, int) {}

// Silences QKL_ASSERT output for tests that provoke it on purpose.
struct SilentAsserts {
    SilentAsserts() : previous(QKL::setAssertHandler(&silentHandler)) {}
    ~SilentAsserts() { QKL::setAssertHandler(previous); }
    QKL::AssertHandler previous;
};

int elemId(const std::string& s) { return QKL::getElemIdByStringDefault(s.data(), s.size()); }
int nsId(const std::string& s) { return QKL::getNSIdByStringDefault(s.data(), s.size()); }
int typeId(const std::string& s) { return QKL::getTypeIdByStringDefault(s.data(), s.size()); }
std::string elemName(int id) { return QKL::getStringByElemIdDefault(id).str(); }
std::string nsName(int id) { return QKL::getStringByNSIdDefault(id).str(); }
std::string typeName(int id) { return QKL::getStringByTypeIdDefault(id).str(); }

const SearchTblItem* find(const SearchTblItem& root, const std::string& s) { return root.findItem(s.data(), s.size()); }
bool add(SearchTblItem& root, int id, const std::string& s) { return root.addItem(id, s.data(), s.size()).second; }

// "ID name, ID name, ..." as the Part writes its lists.
std::map<int, std::string> parseRows(const std::string& text) {
    std::map<int, std::string> rows;
    static const std::regex row("(\\d+) ([^,]+)");
    for (std::sregex_iterator it(text.begin(), text.end(), row), end; it != end; ++it)
        rows[std::stoi((*it)[1])] = (*it)[2];
    return rows;
}

// ---- Edge cases worth testing ----------------------------------------------

// "getElemIdByStringDefault of "packet" with length 6 yields 1398 and
// getStringByElemIdDefault(1398) yields "packet"; "packet_header" yields 1724."
TEST(Part41EdgeCases, PacketYields1398AndPacketHeaderYields1724) {
    EXPECT_EQ(QKL::getElemIdByStringDefault("packet", 6), 1398);
    EXPECT_EQ(elemName(1398), "packet");
    EXPECT_EQ(QKL::getStringByElemIdDefault(1398).length(), 6u);
    EXPECT_EQ(QKL::getElemIdByStringDefault("packet_header", 13), 1724);
}

// "getElemIdByStringDefault of "pack" with length 4 yields 0 (a proper
// prefix), and so does "packets"."
TEST(Part41EdgeCases, ProperPrefixPackAndLongerPacketsYieldZero) {
    EXPECT_EQ(QKL::getElemIdByStringDefault("pack", 4), 0);
    EXPECT_EQ(QKL::getElemIdByStringDefault("packets", 7), 0);
    // Only the given length counts, not a terminating NUL.
    EXPECT_EQ(QKL::getElemIdByStringDefault("packets", 6), 1398);
}

// "getStringByElemIdDefault(1000) and getStringByElemIdDefault(2305) yield an
// empty name with length 0; so does 2180, an empty row."
TEST(Part41EdgeCases, Ids1000And2305AndEmptyRow2180YieldEmptyName) {
    for (int id : {1000, 2305, 2180}) {
        const CharArray& name = QKL::getStringByElemIdDefault(id);
        EXPECT_EQ(name.length(), 0u) << id;
        ASSERT_NE(name.ptr(), nullptr) << id;
        EXPECT_STREQ(name.ptr(), "") << id;
    }
}

// "getStringByNSIdDefault(251) yields an empty name; getNSIdByStringDefault
// of an empty string yields 0."
TEST(Part41EdgeCases, NamespaceRow251IsEmptyAndEmptyStringYieldsZero) {
    EXPECT_EQ(QKL::getStringByNSIdDefault(251).length(), 0u);
    EXPECT_EQ(QKL::getNSIdByStringDefault("", 0), 0);
    EXPECT_EQ(QKL::getNSIdByStringDefault(nullptr, 0), 0);
    EXPECT_EQ(QKL::getElemIdByStringDefault("", 0), 0);
    EXPECT_EQ(QKL::getTypeIdByStringDefault("", 0), 0);
}

// "getStringByTypeIdDefault(236) yields "packet_headerType";
// getTypeIdByStringDefault of "packet_headerType" with length 17 yields 236."
TEST(Part41EdgeCases, TypeRow236IsPacketHeaderTypeBothWays) {
    EXPECT_EQ(typeName(236), "packet_headerType");
    EXPECT_EQ(QKL::getTypeIdByStringDefault("packet_headerType", 17), 236);
}

// "A name containing a byte of 0x80 or above never matches and can never be added."
TEST(Part41EdgeCases, NameWithByteOf0x80OrAboveNeverMatchesAndCannotBeAdded) {
    EXPECT_EQ(QKL::getElemIdByStringDefault("pack\xe5t", 6), 0);
    EXPECT_EQ(QKL::getElemIdByStringDefault("\x80", 1), 0);
    // A node spanning every storable character 1..127: the 8-bit index of
    // each high byte still falls outside the slots.
    SearchTblItem root;
    ASSERT_TRUE(add(root, 1, "\x01"));
    ASSERT_TRUE(add(root, 2, "\x7f"));
    ASSERT_EQ(root.count(), 127);
    for (int b = 0x80; b <= 0xFF; ++b) {
        const char byte = static_cast<char>(b);
        EXPECT_EQ(root.findItem(&byte, 1), nullptr) << b;
        EXPECT_FALSE(root.addItem(3, &byte, 1).second) << b;
        EXPECT_EQ(root.addItem(3, &byte, 1).first, nullptr) << b;
    }
    EXPECT_EQ(root.count(), 127);
}

// "addItem with a word that is already present returns false and keeps the first ID."
TEST(Part41EdgeCases, AddItemOfPresentWordReturnsFalseAndKeepsFirstId) {
    SearchTblItem root;
    const std::pair<SearchTblItem*, bool> first = root.addItem(7, "word", 4);
    const std::pair<SearchTblItem*, bool> second = root.addItem(9, "word", 4);
    EXPECT_TRUE(first.second);
    EXPECT_FALSE(second.second);
    EXPECT_EQ(second.first, first.first);
    EXPECT_EQ(find(root, "word")->id(), 7);
}

// "Adding "b" and then "a" to an empty node gives head 'a' and count 2;
// adding "z" next gives count 26."
TEST(Part41EdgeCases, AddingBThenAGivesHeadACount2ThenZGivesCount26) {
    SearchTblItem root;
    ASSERT_TRUE(add(root, 1, "b"));
    ASSERT_TRUE(add(root, 2, "a"));
    EXPECT_EQ(root.head(), 'a');
    EXPECT_EQ(root.count(), 2);
    ASSERT_TRUE(add(root, 3, "z"));
    EXPECT_EQ(root.head(), 'a');
    EXPECT_EQ(root.count(), 26);
    EXPECT_EQ(root.child(0)->id(), 2);
    EXPECT_EQ(root.child(1)->id(), 1);
    EXPECT_EQ(root.child(25)->id(), 3);
    int nullSlots = 0;
    for (int i = 0; i < root.count(); ++i) nullSlots += root.child(i) == nullptr;
    EXPECT_EQ(nullSlots, 23);
}

// ---- Every row of the three tables -------------------------------------------

// The Part's lists as written; "(left to the implementer)" rows are checked
// for form only.
const char* const kSpecNamespaces = R"(
201 alerts, 202 backm, 203 qkagent, 204 qkagenttypes, 205 dbm, 206 dev, 207 filem, 208 ftpc, 209 fwm, 210 global,
211 httpc, 212 hw_cpu, 213 hw_disk, 214 hw_load_avg, 215 hw_memory, 216 hw_net, 217 hwm,
218 (left to the implementer), 219 lim, 220 mailc, 221 mailerc, 222 nbh, 223 proc, 224 process_info, 225 progm,
226 qkagentprotocol, 227 resourcer, 228 restart, 229 sem, 230 sem_event, 231 system, 232 system_info, 233 tbs,
234 tem, 235 ticketm, 236 ubcs, 237 ugm, 238 ve_conf, 239 ve_cpu, 240 ve_load_avg, 241 ve_net, 242 ve_quota,
243 ve_status, 244 vem, 245 qk_conf, 246 types, 247 protocol, 248 core_types, 249 dbcompress, 250 director,
251 (empty), 252 operators, 253 progress_event, 254 sql, 255 elemen, 256 ve_cache, 257 webcp, 258 migrator,
259 qkup2date, 260 pkgm, 261 snapshotm, 262 authm, 263 server_group, 264 envm, 265 env_samplem, 266 op_log,
267 perf_mon, 268 event_log, 269 res_log, 270 dirm, 271 sessionm, 272 pager, 273 computerm, 274 filer, 275 processm,
276 servicem, 277 userm, 278 devm, 279 firewallm, 280 env_event_mon, 281 resourcem, 282 backupm, 283 scheduler,
284 (left to the implementer), 285 alertm, 286 data_storagem, 287 mailer, 288 mail_configurator,
289 ftp_configurator, 290 http_configurator, 291 securitym, 292 types, 293 director, 294 migrator, 295 process_info,
296 progress_event, 297 protocol, 298 system, 299 networkm, 300 backup_storagem, 301 infrastructurem, 302 packagem,
303 proc_info, 304 relocator, 305 sso, 306 ip_pool, 307 user_profile, 308 disk_image_library, 309 policym,
310 policysl, 311 sample_manager)";

const char* const kSpecTypes = R"(
101 alertmType, 102 resource_alertType, 103 authmType, 104 security_principalType, 105 sp_modType, 106 backupmType,
107 backup_optionsType, 108 restore_optionsType, 109 selective_restore_optionsType, 110 backupType,
111 list_optionsType, 112 search_optionsType, 113 remove_optionsType, 114 server_groupType, 115 configType,
116 networkType, 117 osType, 118 env_statusType, 119 qosType, 120 env_configType, 121 venv_configType, 122 envType,
123 processesType, 124 load_avgType, 125 cpu_loadType, 126 cpuType, 127 transferType, 128 system_nodeType,
129 resourceType, 130 intervalType, 131 statsType, 132 net_addressType, 133 net_classType, 134 ip_rangeType,
135 sample_confType, 136 interfaceType, 137 sys_infoType, 138 ps_infoType, 139 load_avg_statsType,
140 alert_dataType, 141 ip_addressType, 142 env_resourceType, 143 ip_poolType, 144 usageType,
145 root_credentialType, 146 credentialType, 147 tokenType, 148 auth_nameType, 149 connection_infoType,
150 eid_listType, 151 vt_infoType, 152 vt_settingsType, 153 userType, 154 groupType, 155 packageType,
156 event_dataType, 157 named_listType, 158 modType, 159 realmType, 160 eventType, 161 infoType, 162 aceType,
163 security_descriptorType, 164 security_objectType, 165 env_security_objectType, 166 net_deviceType,
167 net_nicType, 168 computermType, 169 diskType, 170 partitionType, 171 systemType, 172 data_storagemType,
173 ds_locationType, 174 ds_configurationType, 175 ds_object_infoType, 176 devmType, 177 mount_deviceType,
178 directorType, 179 dirmType, 180 entryType, 181 controlType, 182 dir_realmType, 183 vlv_controlType,
184 sort_controlType, 185 envmType, 186 env_event_monType, 187 env_config_event_dataType,
188 env_status_event_dataType, 189 env_samplemType, 190 event_logType, 191 filerType, 192 navigateType,
193 navigate_wildType, 194 fileType, 195 credType, 196 firewallmType, 197 port_rangeType, 198 ruleType, 199 ftpcType,
200 httpcType, 201 directiveType, 202 navigatorType, 203 treeType, 204 sectionType, 205 (left to the implementer),
206 (left to the implementer), 207 parameterType, 208 (left to the implementer), 209 (left to the implementer),
210 mail_configuratorType, 211 mlistType, 212 mailerType, 213 migratorType, 214 cloneoptionsType, 215 networkmType,
216 ip_routeType, 217 net_vlanType, 218 net_bridgeType, 219 op_logType, 220 pagerType, 221 param_nameType,
222 param_valueType, 223 row_setType, 224 rowType, 225 perf_monType, 226 perf_statType, 227 classType, 228 pkgmType,
229 pkg_paramsType, 230 package_rpmType, 231 pkg_cmdType, 232 packagesType, 233 processmType, 234 process_infoType,
235 progress_eventType, 236 packet_headerType, 237 operatorType, 238 operator_functionalType,
239 operator_periodicType, 240 set_periodType, 241 start_monitorType, 242 stop_monitorType, 243 authType,
244 event_configurationType, 245 periodic_configurationType, 246 routeType, 247 dataType, 248 resourcemType,
249 resource_poolType, 250 resource_ip_poolType, 251 resource_ipType, 252 res_logType, 253 logType,
254 perf_dataType, 255 schedulerType, 256 taskType, 257 conditionType, 258 task_infoType, 259 securitymType,
260 servicemType, 261 serviceType, 262 service_actionType, 263 sessionmType, 264 sessionType, 265 snapshotmType,
266 snapshotType, 267 restart_event_dataType, 268 startup_event_dataType, 269 voc_parameterType, 270 voc_opType,
271 usermType, 272 package_linuxType, 273 package_debType, 274 backup_storagemType, 275 clone_optionsType,
276 p2v_migrate_optionsType, 277 v2v_migrate_optionsType, 278 v2p_migrate_optionsType, 279 infrastructuremType,
280 unit_infoType, 281 unitType, 282 get_info_optionsType, 283 get_env_info_optionsType, 284 backup_dataType,
285 env_backup_dataType, 286 backupm_configType, 287 pkg_setup_cmdType, 288 roleType, 289 role_assignmentType,
290 scopeType, 291 id_scopeType, 292 voc_idType, 293 vocabularyType, 294 triggerType, 295 daily_triggerType,
296 weekly_triggerType, 297 monthly_triggerType, 298 monthly_day_of_week_triggerType, 299 once_triggerType,
300 server_group_alertType, 301 common_deviceType, 302 windows_deviceType, 303 scsi_deviceType,
304 forward_optionsType, 305 mount_optionsType, 306 exclude_listType, 307 hw_notesType, 308 backup_options_baseType,
309 native_configType, 310 log_options_baseType, 311 log_optionsType, 312 loginType, 313 packagemType,
314 proc_infoType, 315 relocatorType, 316 connectivity_infoType, 317 ssoType, 318 applicationType,
319 server_group_configurationType, 320 computerm_configurationType, 321 director_configurationType,
322 envm_configurationType, 323 event_log_configurationType, 324 filer_configurationType,
325 infrastructurem_configurationType, 326 (left to the implementer), 327 op_log_configurationType,
328 perf_mon_configurationType, 329 proc_info_configurationType, 330 configurationType,
331 res_log_configurationType, 332 securitym_configurationType, 333 servicem_configurationType,
334 sessionm_configurationType, 335 system_configurationType, 336 authm_configurationType,
337 backupm_configurationType, 338 scheduler_configurationType, 339 ip_poolmType, 340 poolType, 341 bindingType,
342 new_device_propertiesType, 343 compress_perf_dataType, 344 compressperfdataType, 345 user_profileType,
346 personal_settingsType, 347 interface_settingsType, 348 browse_settingsType, 349 desktop_settingsType,
350 browse_listType, 351 browse_columnType, 352 screenType, 353 screen_settingsType, 354 dashboard_sectionType,
355 dashboardType, 356 profile_filterType, 357 profileType, 358 exprType, 359 comparison_exprType,
360 isnull_exprType, 361 in_exprType, 362 binary_comparison_exprType, 363 between_exprType, 364 logical_exprType,
365 functionType, 366 logical_expr_listType, 367 (empty), 368 nodeType, 369 ip_allocationType,
370 folderattributesType, 371 management_nodeType, 372 (empty), 373 disk_image_libraryType, 374 file_shareType,
375 disk_imageType, 376 image_infoType, 377 policy_ruleType, 378 (empty), 379 policymType, 380 policyType,
381 assignmentType, 382 assignment_policyType, 383 policyslType, 384 env_sampleType, 385 file_listType,
386 sample_managerType, 387 folder_attributesType, 388 audit_event_dataType, 389 validationType)";

const std::map<int, std::string> kSpecElements = {
    {1001, "alerts"}, {1002, "veid"}, {1003, "alert"}, {1004, "time"}, {1007, "type"}, {1010, "id"},
    {1021, "configuration"}, {1026, "name"}, {1044, "system"}, {1068, "host"}, {1175, "progress"},
    {1223, "version"}, {1224, "message"}, {1307, "data"}, {1322, "request"}, {1337, "origin"},
    {1396, "error"}, {1398, "packet"}, {1400, "cookie"}, {1401, "target"}, {1404, "ok"}, {1405, "code"},
    {1409, "priority"}, {1453, "timeout"}, {1649, "src"}, {1652, "dst"}, {1724, "packet_header"},
    {1748, "session"}, {2303, "inactive_session_expiration"}, {2304, "list_ids"}};

const std::string kLeftOpen = "(left to the implementer)";

std::set<int> emptyRows(const QKL::Internal::CharArray& (*byId)(int), int first, int last) {
    std::set<int> holes;
    for (int id = first; id <= last; ++id)
        if (byId(id).length() == 0) holes.insert(id);
    return holes;
}

TEST(Part41Tables, CountsAndIdRanges) {
    EXPECT_EQ(QKL::ELEM_FIRST_ID, 1001);
    EXPECT_EQ(QKL::ELEM_LAST_ID, 2304);
    EXPECT_EQ(QKL::ELEM_COUNT, 1304);
    EXPECT_EQ(QKL::NS_FIRST_ID, 201);
    EXPECT_EQ(QKL::NS_LAST_ID, 311);
    EXPECT_EQ(QKL::NS_COUNT, 111);
    EXPECT_EQ(QKL::TYPE_FIRST_ID, 101);
    EXPECT_EQ(QKL::TYPE_LAST_ID, 389);
    EXPECT_EQ(QKL::TYPE_COUNT, 289);
    EXPECT_EQ(elemName(1001), "alerts");
    EXPECT_EQ(elemName(2304), "list_ids");
    EXPECT_EQ(typeName(101), "alertmType");
    EXPECT_EQ(typeName(389), "validationType");
    // Outside the ranges, including the extremes of int: the empty name.
    for (int id : {INT_MIN, -1, 0, 1000, 2305, INT_MAX}) EXPECT_EQ(QKL::getStringByElemIdDefault(id).length(), 0u);
    for (int id : {INT_MIN, 0, 200, 312, INT_MAX}) EXPECT_EQ(QKL::getStringByNSIdDefault(id).length(), 0u);
    for (int id : {INT_MIN, 0, 100, 390, INT_MAX}) EXPECT_EQ(QKL::getStringByTypeIdDefault(id).length(), 0u);
}

TEST(Part41Tables, HolesExactlyWhereListed) {
    EXPECT_EQ(emptyRows(&QKL::getStringByElemIdDefault, 1001, 2304), (std::set<int>{2180, 2181}));
    EXPECT_EQ(emptyRows(&QKL::getStringByNSIdDefault, 201, 311), (std::set<int>{251}));
    EXPECT_EQ(emptyRows(&QKL::getStringByTypeIdDefault, 101, 389), (std::set<int>{367, 372, 378}));
}

TEST(Part41Tables, EachTableHasItsOwnEmptyNameForOutOfRangeIds) {
    const CharArray& elem = QKL::getStringByElemIdDefault(0);
    const CharArray& ns = QKL::getStringByNSIdDefault(0);
    const CharArray& type = QKL::getStringByTypeIdDefault(0);
    EXPECT_EQ(&elem, &QKL::getStringByElemIdDefault(2305));
    EXPECT_NE(&elem, &ns);
    EXPECT_NE(&ns, &type);
    EXPECT_NE(&elem, &type);
}

TEST(Part41Tables, ListedElementRowsAtTheirIds) {
    for (const auto& row : kSpecElements) EXPECT_EQ(elemName(row.first), row.second) << row.first;
}

TEST(Part41Tables, NamespaceUrisBuiltFromTheBaseUri) {
    EXPECT_STREQ(QKL::VOCABULARY_BASE_URI, "http://www.qkl.example");
    const std::map<int, std::string> spec = parseRows(kSpecNamespaces);
    ASSERT_EQ(spec.size(), 111u);
    std::set<std::string> uris;
    for (const auto& row : spec) {
        const int id = row.first;
        if (row.second == "(empty)") continue;
        const std::string prefix = std::string(QKL::VOCABULARY_BASE_URI) + "/webservices/" +
                                   (id <= 260 ? "qka/3.0.3/" : "qkl/4.0.0/");
        const std::string uri = nsName(id);
        EXPECT_EQ(uri.compare(0, prefix.size(), prefix), 0) << id << " " << uri;
        if (row.second != kLeftOpen) { EXPECT_EQ(uri, prefix + row.second) << id; }
        EXPECT_GT(uri.size(), prefix.size()) << id;
        EXPECT_TRUE(uris.insert(uri).second) << "duplicate URI " << uri;
    }
    EXPECT_EQ(nsName(255), std::string(QKL::VOCABULARY_BASE_URI) + "/webservices/qka/3.0.3/elemen");
    EXPECT_NE(nsName(246), nsName(292));
}

TEST(Part41Tables, ListedTypeRowsAtTheirIdsAndEveryTypeEndsInType) {
    const std::map<int, std::string> spec = parseRows(kSpecTypes);
    ASSERT_EQ(spec.size(), 289u);
    for (const auto& row : spec) {
        const std::string name = typeName(row.first);
        if (row.second == "(empty)") continue;
        if (row.second != kLeftOpen) { EXPECT_EQ(name, row.second) << row.first; }
        ASSERT_GT(name.size(), 4u) << row.first;
        EXPECT_EQ(name.substr(name.size() - 4), "Type") << row.first;
    }
    EXPECT_EQ(typeId("cloneoptionsType"), 214);
    EXPECT_EQ(typeId("clone_optionsType"), 275);
    EXPECT_EQ(typeId("compress_perf_dataType"), 343);
    EXPECT_EQ(typeId("compressperfdataType"), 344);
    EXPECT_EQ(typeId("folderattributesType"), 370);
    EXPECT_EQ(typeId("folder_attributesType"), 387);
}

TEST(Part41Tables, ElementNamesAreShortLowerCaseAndDistinctFromEachOtherAndFromTypes) {
    static const std::regex form("[a-z0-9_]{1,34}");
    std::set<std::string> names;
    for (int id = 1001; id <= 2304; ++id) {
        const std::string name = elemName(id);
        if (name.empty()) continue;
        EXPECT_TRUE(std::regex_match(name, form)) << id << " " << name;
        EXPECT_TRUE(names.insert(name).second) << "duplicate element " << name;
    }
    EXPECT_EQ(names.size(), 1302u);
    for (int id = 101; id <= 389; ++id) {
        const std::string name = typeName(id);
        if (!name.empty()) { EXPECT_TRUE(names.insert(name).second) << "duplicate across tables " << name; }
    }
    EXPECT_EQ(names.size(), 1302u + 286u);
}

TEST(Part41Tables, EveryNamedRowRoundTripsNameToIdToName) {
    for (int id = 1001; id <= 2304; ++id)
        if (!elemName(id).empty()) { EXPECT_EQ(elemId(elemName(id)), id) << elemName(id); }
    for (int id = 201; id <= 311; ++id)
        if (!nsName(id).empty()) { EXPECT_EQ(nsId(nsName(id)), id) << nsName(id); }
    for (int id = 101; id <= 389; ++id)
        if (!typeName(id).empty()) { EXPECT_EQ(typeId(typeName(id)), id) << typeName(id); }
    // Spaces do not mix: an element name is no namespace or type, and back.
    EXPECT_EQ(typeId("packet"), 0);
    EXPECT_EQ(elemId("packet_headerType"), 0);
}

TEST(Part41Tables, BuildingTheVocabulariesReportsNoAssertion) {
    const unsigned long before = QKL::assertReports();
    (void)QKL::getElemIdByStringDefault("packet", 6);
    (void)QKL::getNSIdByStringDefault("x", 1);
    (void)QKL::getTypeIdByStringDefault("x", 1);
    EXPECT_EQ(QKL::assertReports(), before);
    // The library's own build recorded how many reports it raised ...
    EXPECT_EQ(QKL::Internal::vocabularyBuildReports(), 0u);
    // ... and rebuilding each index from the same rows raises none either.
    const struct { const char* const* rows; int first, count; } tables[] = {
        {QKL::Internal::elementRows(), QKL::ELEM_FIRST_ID, QKL::ELEM_COUNT},
        {QKL::Internal::namespaceRows(), QKL::NS_FIRST_ID, QKL::NS_COUNT},
        {QKL::Internal::typeRows(), QKL::TYPE_FIRST_ID, QKL::TYPE_COUNT}};
    for (const auto& table : tables) {
        std::vector<CharArray> names;
        for (int i = 0; i < table.count; ++i) names.emplace_back(table.rows[i]);
        const unsigned long start = QKL::assertReports();
        boost::shared_ptr<SearchTblItem> index = QKL::Internal::buildVocabularyIndex(names.data(), table.first, table.count);
        EXPECT_EQ(QKL::assertReports(), start);
        ASSERT_TRUE(index);
    }
}

// A duplicate or malformed row fires the assertion but does not stop the build.
TEST(Part41Tables, BadRowsAreReportedAndTheBuildGoesOn) {
    SilentAsserts silent;
    const CharArray names[] = {CharArray("a"), CharArray("b"), CharArray("a"), CharArray(""), CharArray("\xff"),
                               CharArray("c")};
    const unsigned long before = QKL::assertReports();
    boost::shared_ptr<SearchTblItem> index = QKL::Internal::buildVocabularyIndex(names, 10, 6);
    EXPECT_EQ(QKL::assertReports(), before + 2);  // the duplicate "a" and "\xff"; the empty row passes
    EXPECT_EQ(find(*index, "a")->id(), 10);
    EXPECT_EQ(find(*index, "b")->id(), 11);
    EXPECT_EQ(find(*index, "c")->id(), 15);
}

// Runs during this executable's static initialisation, in no particular
// order relative to the library's own initialisers.
const int g_packetIdAtStaticInit = QKL::getElemIdByStringDefault("packet", 6);

TEST(Part41DefaultMap, LookUpFromAStaticInitialiserOfAnotherTranslationUnitWorks) {
    EXPECT_EQ(g_packetIdAtStaticInit, 1398);
}

// "After static initialisation the vocabularies are read-only and may be read
// from any number of threads without locking."
TEST(Part41DefaultMap, ConcurrentReadersAgree) {
    std::vector<std::thread> readers;
    std::atomic<int> mismatches{0};
    for (int t = 0; t < 4; ++t)
        readers.emplace_back([&mismatches] {
            for (int id = 1001; id <= 2304; ++id)
                if (elemId(elemName(id)) != (elemName(id).empty() ? 0 : id)) ++mismatches;
        });
    for (std::thread& reader : readers) reader.join();
    EXPECT_EQ(mismatches.load(), 0);
}

TEST(Part41DefaultMap, AdaptersForwardToTheStringLookups) {
    int (*const findElem)(const CharArray&) = &QKL::QKLDefaultMap::findElem;
    int (*const findNS)(const CharArray&) = &QKL::QKLDefaultMap::findNS;
    int (*const findType)(const CharArray&) = &QKL::QKLDefaultMap::findType;
    EXPECT_EQ(findElem(CharArray("packet")), 1398);
    EXPECT_EQ(findElem(CharArray("packetType")), 0);
    EXPECT_EQ(findNS(QKL::getStringByNSIdDefault(311)), 311);
    EXPECT_EQ(findNS(QKL::Internal::nullCharArray), 0);
    EXPECT_EQ(findType(CharArray("packet_headerType")), 236);
}

// ---- SearchTblItem -------------------------------------------------------------

TEST(Part41SearchTblItem, DefaultNodeIsEmptyAndRefusesIdZeroNullAndEmptyWords) {
    SearchTblItem node;
    EXPECT_EQ(node.id(), 0);
    EXPECT_EQ(node.head(), 0);
    EXPECT_EQ(node.count(), 0);
    EXPECT_EQ(node.child(0), nullptr);
    EXPECT_EQ(node.addItem(0, "a", 1).first, nullptr);  // id 0 is "no word"
    EXPECT_FALSE(node.addItem(1, nullptr, 1).second);
    EXPECT_FALSE(node.addItem(1, "a", 0).second);
    EXPECT_EQ(node.count(), 0);
    EXPECT_EQ(node.findItem(nullptr, 1), nullptr);
}

TEST(Part41SearchTblItem, FindItemOfAPrefixReturnsANodeWithIdZero) {
    SearchTblItem root;
    ASSERT_TRUE(add(root, 42, "packet"));
    const SearchTblItem* prefix = find(root, "pack");
    ASSERT_NE(prefix, nullptr);
    EXPECT_EQ(prefix->id(), 0);
    EXPECT_EQ(find(root, "packet")->id(), 42);
    EXPECT_EQ(find(root, "packets"), nullptr);
    EXPECT_EQ(find(root, "Packet"), nullptr);  // case-sensitive
}

TEST(Part41SearchTblItem, NulOrHighByteRefusesTheWordButEarlierNodesStay) {
    SearchTblItem root;
    EXPECT_EQ(root.addItem(5, "ab\x80" "c", 4).first, nullptr);
    EXPECT_FALSE(root.addItem(6, "xy\0z", 4).second);
    ASSERT_NE(find(root, "ab"), nullptr);
    EXPECT_EQ(find(root, "ab")->id(), 0);
    ASSERT_NE(find(root, "xy"), nullptr);
    EXPECT_EQ(root.findItem("ab\x80" "c", 4), nullptr);
}

TEST(Part41SearchTblItem, CopyIsDeepAndIndependent) {
    SearchTblItem original;
    ASSERT_TRUE(add(original, 1, "alpha"));
    ASSERT_TRUE(add(original, 2, "beta"));
    SearchTblItem copy(original);
    EXPECT_EQ(copy.head(), original.head());
    EXPECT_EQ(copy.count(), original.count());
    EXPECT_NE(copy.child(0), original.child(0));  // new nodes, not shared ones
    EXPECT_EQ(find(copy, "alpha")->id(), 1);
    EXPECT_EQ(find(copy, "beta")->id(), 2);
    ASSERT_TRUE(add(copy, 3, "gamma"));
    original.cleanUp();
    EXPECT_EQ(find(original, "alpha"), nullptr);
    EXPECT_EQ(find(copy, "alpha")->id(), 1);
    EXPECT_EQ(find(copy, "gamma")->id(), 3);
}

TEST(Part41SearchTblItem, CopyAssignmentCopiesAndSurvivesSelfAssignment) {
    SearchTblItem a, b;
    ASSERT_TRUE(add(a, 1, "one"));
    ASSERT_TRUE(add(b, 2, "two"));
    b = a;
    EXPECT_EQ(find(b, "one")->id(), 1);
    EXPECT_EQ(find(b, "two"), nullptr);
    SearchTblItem& alias = b;
    b = alias;
    EXPECT_EQ(find(b, "one")->id(), 1);
}

TEST(Part41SearchTblItem, SwapExchangesAllFieldsAndSelfSwapDoesNothing) {
    SearchTblItem a, b;
    ASSERT_TRUE(add(a, 1, "m"));
    ASSERT_TRUE(add(a, 2, "n"));
    a.Swap(a);
    EXPECT_EQ(a.head(), 'm');
    EXPECT_EQ(a.count(), 2);
    a.Swap(b);
    EXPECT_EQ(a.count(), 0);
    EXPECT_EQ(a.head(), 0);
    EXPECT_EQ(b.head(), 'm');
    EXPECT_EQ(b.count(), 2);
    EXPECT_EQ(find(b, "n")->id(), 2);
}

TEST(Part41SearchTblItem, CleanUpResetsAllFields) {
    SearchTblItem root;
    ASSERT_TRUE(add(root, 9, "q"));
    SearchTblItem* leaf = root.addItem(9, "q", 1).first;
    ASSERT_TRUE(add(*leaf, 8, "r"));  // a node with an id and children
    leaf->cleanUp();
    EXPECT_EQ(leaf->id(), 0);
    EXPECT_EQ(leaf->count(), 0);
    EXPECT_EQ(leaf->head(), 0);
    root.cleanUp();
    EXPECT_EQ(root.count(), 0);
    EXPECT_EQ(find(root, "q"), nullptr);
}

TEST(Part41SearchTblItem, IncreaseHeadAndTailLayOutTheSlots) {
    SearchTblItem root;
    ASSERT_TRUE(add(root, 1, "c"));
    const SearchTblItem* c = root.child(0);
    root.increaseHead(2);
    EXPECT_EQ(root.head(), 'a');
    EXPECT_EQ(root.count(), 3);
    EXPECT_EQ(root.child(0), nullptr);
    EXPECT_EQ(root.child(1), nullptr);
    EXPECT_EQ(root.child(2), c);  // moved up by n
    root.increaseTail(3);
    EXPECT_EQ(root.head(), 'a');
    EXPECT_EQ(root.count(), 6);
    for (int i = 3; i < 6; ++i) EXPECT_EQ(root.child(i), nullptr);
    EXPECT_EQ(find(root, "c")->id(), 1);
}

TEST(Part41SearchTblItem, IncreaseWithNonPositiveOrTooWideNIsReportedAndChangesNothing) {
    SilentAsserts silent;
    SearchTblItem root;
    ASSERT_TRUE(add(root, 1, "c"));
    const unsigned long before = QKL::assertReports();
    root.increaseHead(0);
    root.increaseHead(-3);   // fails both of the Part's assertions: n > 0, count + n >= 1
    root.increaseTail(0);
    root.increaseTail(127);  // would span 128 slots
    EXPECT_EQ(QKL::assertReports(), before + 5);
    EXPECT_EQ(root.head(), 'c');
    EXPECT_EQ(root.count(), 1);
    EXPECT_EQ(find(root, "c")->id(), 1);
}

}  // namespace
