// The namespace vocabulary: IDs 201-311, strictly by position.
// Wire contract: never reorder or remove a row; a retired ID stays as an
// empty row so that every later ID keeps its value.
#include "qkl/vocabulary/QKLDefaultMap.h"

namespace QKL {
namespace Internal {
namespace {

// Built by literal concatenation from the one base URI, so the table needs no
// dynamic initialisation. The older modules are in the qka family, the newer
// ones in qkl; a module name may occur in both (246 and 292 are different).
#define QKA_3_0_3 QKL_VOCABULARY_BASE_URI_TEXT "/webservices/qka/3.0.3/"
#define QKL_4_0_0 QKL_VOCABULARY_BASE_URI_TEXT "/webservices/qkl/4.0.0/"

const char* const kNamespaceRows[] = {
    /* 201 */ QKA_3_0_3 "alerts",
    /* 202 */ QKA_3_0_3 "backm",
    /* 203 */ QKA_3_0_3 "qkagent",
    /* 204 */ QKA_3_0_3 "qkagenttypes",
    /* 205 */ QKA_3_0_3 "dbm",
    /* 206 */ QKA_3_0_3 "dev",
    /* 207 */ QKA_3_0_3 "filem",
    /* 208 */ QKA_3_0_3 "ftpc",
    /* 209 */ QKA_3_0_3 "fwm",
    /* 210 */ QKA_3_0_3 "global",
    /* 211 */ QKA_3_0_3 "httpc",
    /* 212 */ QKA_3_0_3 "hw_cpu",
    /* 213 */ QKA_3_0_3 "hw_disk",
    /* 214 */ QKA_3_0_3 "hw_load_avg",
    /* 215 */ QKA_3_0_3 "hw_memory",
    /* 216 */ QKA_3_0_3 "hw_net",
    /* 217 */ QKA_3_0_3 "hwm",
    /* 218 */ QKA_3_0_3 "kernel",
    /* 219 */ QKA_3_0_3 "lim",
    /* 220 */ QKA_3_0_3 "mailc",
    /* 221 */ QKA_3_0_3 "mailerc",
    /* 222 */ QKA_3_0_3 "nbh",
    /* 223 */ QKA_3_0_3 "proc",
    /* 224 */ QKA_3_0_3 "process_info",
    /* 225 */ QKA_3_0_3 "progm",
    /* 226 */ QKA_3_0_3 "qkagentprotocol",
    /* 227 */ QKA_3_0_3 "resourcer",
    /* 228 */ QKA_3_0_3 "restart",
    /* 229 */ QKA_3_0_3 "sem",
    /* 230 */ QKA_3_0_3 "sem_event",
    /* 231 */ QKA_3_0_3 "system",
    /* 232 */ QKA_3_0_3 "system_info",
    /* 233 */ QKA_3_0_3 "tbs",
    /* 234 */ QKA_3_0_3 "tem",
    /* 235 */ QKA_3_0_3 "ticketm",
    /* 236 */ QKA_3_0_3 "ubcs",
    /* 237 */ QKA_3_0_3 "ugm",
    /* 238 */ QKA_3_0_3 "ve_conf",
    /* 239 */ QKA_3_0_3 "ve_cpu",
    /* 240 */ QKA_3_0_3 "ve_load_avg",
    /* 241 */ QKA_3_0_3 "ve_net",
    /* 242 */ QKA_3_0_3 "ve_quota",
    /* 243 */ QKA_3_0_3 "ve_status",
    /* 244 */ QKA_3_0_3 "vem",
    /* 245 */ QKA_3_0_3 "qk_conf",
    /* 246 */ QKA_3_0_3 "types",
    /* 247 */ QKA_3_0_3 "protocol",
    /* 248 */ QKA_3_0_3 "core_types",
    /* 249 */ QKA_3_0_3 "dbcompress",
    /* 250 */ QKA_3_0_3 "director",
    /* 251 */ EMPTY_ROW,  // reserved: kept unnamed so that later IDs do not shift
    /* 252 */ QKA_3_0_3 "operators",
    /* 253 */ QKA_3_0_3 "progress_event",
    /* 254 */ QKA_3_0_3 "sql",
    /* 255 */ QKA_3_0_3 "elemen",  // sic: the full URI is the key, kept without its last letter
    /* 256 */ QKA_3_0_3 "ve_cache",
    /* 257 */ QKA_3_0_3 "webcp",
    /* 258 */ QKA_3_0_3 "migrator",
    /* 259 */ QKA_3_0_3 "qkup2date",
    /* 260 */ QKA_3_0_3 "pkgm",
    /* 261 */ QKL_4_0_0 "snapshotm",
    /* 262 */ QKL_4_0_0 "authm",
    /* 263 */ QKL_4_0_0 "server_group",
    /* 264 */ QKL_4_0_0 "envm",
    /* 265 */ QKL_4_0_0 "env_samplem",
    /* 266 */ QKL_4_0_0 "op_log",
    /* 267 */ QKL_4_0_0 "perf_mon",
    /* 268 */ QKL_4_0_0 "event_log",
    /* 269 */ QKL_4_0_0 "res_log",
    /* 270 */ QKL_4_0_0 "dirm",
    /* 271 */ QKL_4_0_0 "sessionm",
    /* 272 */ QKL_4_0_0 "pager",
    /* 273 */ QKL_4_0_0 "computerm",
    /* 274 */ QKL_4_0_0 "filer",
    /* 275 */ QKL_4_0_0 "processm",
    /* 276 */ QKL_4_0_0 "servicem",
    /* 277 */ QKL_4_0_0 "userm",
    /* 278 */ QKL_4_0_0 "devm",
    /* 279 */ QKL_4_0_0 "firewallm",
    /* 280 */ QKL_4_0_0 "env_event_mon",
    /* 281 */ QKL_4_0_0 "resourcem",
    /* 282 */ QKL_4_0_0 "backupm",
    /* 283 */ QKL_4_0_0 "scheduler",
    /* 284 */ QKL_4_0_0 "licensem",
    /* 285 */ QKL_4_0_0 "alertm",
    /* 286 */ QKL_4_0_0 "data_storagem",
    /* 287 */ QKL_4_0_0 "mailer",
    /* 288 */ QKL_4_0_0 "mail_configurator",
    /* 289 */ QKL_4_0_0 "ftp_configurator",
    /* 290 */ QKL_4_0_0 "http_configurator",
    /* 291 */ QKL_4_0_0 "securitym",
    /* 292 */ QKL_4_0_0 "types",
    /* 293 */ QKL_4_0_0 "director",
    /* 294 */ QKL_4_0_0 "migrator",
    /* 295 */ QKL_4_0_0 "process_info",
    /* 296 */ QKL_4_0_0 "progress_event",
    /* 297 */ QKL_4_0_0 "protocol",
    /* 298 */ QKL_4_0_0 "system",
    /* 299 */ QKL_4_0_0 "networkm",
    /* 300 */ QKL_4_0_0 "backup_storagem",
    /* 301 */ QKL_4_0_0 "infrastructurem",
    /* 302 */ QKL_4_0_0 "packagem",
    /* 303 */ QKL_4_0_0 "proc_info",
    /* 304 */ QKL_4_0_0 "relocator",
    /* 305 */ QKL_4_0_0 "sso",
    /* 306 */ QKL_4_0_0 "ip_pool",
    /* 307 */ QKL_4_0_0 "user_profile",
    /* 308 */ QKL_4_0_0 "disk_image_library",
    /* 309 */ QKL_4_0_0 "policym",
    /* 310 */ QKL_4_0_0 "policysl",
    /* 311 */ QKL_4_0_0 "sample_manager",
};

#undef QKA_3_0_3
#undef QKL_4_0_0

static_assert(sizeof(kNamespaceRows) / sizeof(kNamespaceRows[0]) == NS_COUNT,
              "one row per namespace ID 201-311");

}  // namespace

const char* const* namespaceRows() { return kNamespaceRows; }

}  // namespace Internal
}  // namespace QKL
