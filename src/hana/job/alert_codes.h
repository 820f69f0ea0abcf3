#pragma once

namespace sap_hana {

/// Every job alert of this module has this class and this level.
enum Alert_Class : unsigned long { ALERT_CLASS_HANA = 7 };
enum Alert_Level : long { ALERT_LEVEL_JOB = 1 };

/// Which step of a job failed. The numbers are known to backupd and to whoever reads its alerts.
enum Alert_Code : unsigned long {
  ALERT_PREPARE_BACKINT = 1,
  ALERT_INIT_HDBSQL = 2,
  ALERT_START_TENANT = 3,   ///< parameter "database"
  ALERT_STOP_DATABASE = 4,  ///< parameter "database": the tenant, or the instance
  ALERT_COLLECT_SOURCE = 5,
  ALERT_RESOURCE_INFO = 6,
  ALERT_BACKINT_CONFIGURATION = 7,
  ALERT_EXECUTE_BACKUP = 8,
  ALERT_BACKINT_JOB = 9,
  ALERT_LAST_FULL_BACKUP = 10,
  ALERT_BACKINT_JOB_STATE = 11,
  ALERT_FULL_BACKUP_CATALOG = 12,
  ALERT_UPDATE_METADATA = 13,
  ALERT_LOG_CONFIGURATION = 14,  ///< parameter "instance": the instance, or the database
  ALERT_RECOVER = 15,
  ALERT_RESTORE_CATALOG = 16,
  ALERT_RESTART_CLUSTER = 17,  ///< parameter "host": its uuid
  ALERT_STATEMENT_FILE = 18,   ///< parameter "file": another recovery is pending
  ALERT_STOP_BACKUP = 20,      ///< parameter "database": the one handled last; also when no backup ran
  ALERT_SAVE_CATALOG = 45
};

enum Alert_Flags : unsigned long {
  ALERT_FLAGS_NONE = 0,
  ALERT_FLAGS_CATALOG = 0x100000000000  ///< HANA holds the backup, backupd does not know it
};

}  // namespace sap_hana
