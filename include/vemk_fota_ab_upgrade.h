/* SPDX-License-Identifier: Apache-2.0 */
/**
 * The host's interface of zozale, the A/B updater for raw NAND devices.
 *
 * A device keeps two complete systems, A and B. One runs; the other can be verified against,
 * rewritten from a package, or made a copy of the running one. None of these calls changes which
 * system boots next, except vemk_dual_set_boot_to_system().
 *
 * Every call runs to completion on the caller's thread. The library keeps process-wide state and
 * takes no lock: one caller at a time, never an upgrade and a sync together, and no setter while
 * either runs.
 *
 * The host process must define sc_cfg_get(), sc_cfg_set() and sc_cfg_save(), the platform's
 * non-volatile configuration store; see "The configuration store" at the end of this file.
 *
 * Why a call failed is told by the log only: standard output and
 * "/cache/ovu_fota_ab/upi_ab.log".
 */
#ifndef VEMK_FOTA_AB_UPGRADE_H
#define VEMK_FOTA_AB_UPGRADE_H

#ifdef __cplusplus
/* Flash and store may hold any 32-bit word: a fixed underlying type makes every one a valid value.
 */
#define VEMK_ENUM(name) enum name : int
extern "C" {
#else
#define VEMK_ENUM(name) enum name
#endif

/** Progress of a verification or an upgrade, as kept in the store. */
typedef VEMK_ENUM(upgrade_status_s_type){
    UPGRADE_STATUS_UNKNOWN = -1,
    UPGRADE_STATUS_VERIFING = 0, /**< Also what a store reads as that was never written. */
    UPGRADE_STATUS_VERIFY_SUCCESS = 1,
    UPGRADE_STATUS_VERIFY_FAIL = 2,
    UPGRADE_STATUS_UPDATING = 3,
    UPGRADE_STATUS_UPDATE_SUCCESS = 4,
    UPGRADE_STATUS_UPDATE_FAIL = 5,
    UPGRADE_STATUS_NO_NEED_UPDATE = 6,
    UPGRADE_STATUS_NEED_UPDATE = 7,
} upgrade_status_s_type;

/** State of a system synchronisation, as kept in the store. */
typedef VEMK_ENUM(sync_status_s_type){
    SYNC_STATUS_FAIL = -1,
    SYNC_STATUS_SUCCESS = 0, /**< Also what a store reads as that was never written. */
    SYNC_STATUS_SYNCING = 1,
} sync_status_s_type;

/** Names a system, in this interface and in the boot flag record. */
typedef VEMK_ENUM(T_BOOT_TARGET){
    DUAL_SYSTEM = 0x875A,  /**< System A. */
    DUAL_SYSTEM2 = 0x986B, /**< System B. */
} T_BOOT_TARGET;

/** Health of a system, as kept in the boot flag record. */
typedef VEMK_ENUM(T_DUALSYSTEM_STATUS){
    DUALSYSTEM_STATUS_BOOTABLE = 0xB0AB,   /**< May be booted. */
    DUALSYSTEM_STATUS_SUCCESSFUL = 0x5CCF, /**< Has booted successfully. */
    DUALSYSTEM_STATUS_UNBOOTABLE = 0xBABE, /**< Must not be booted. */
} T_DUALSYSTEM_STATUS;

/** Status and sizes of the last verification or upgrade. */
typedef struct {
  int upgrade_status; /**< An upgrade_status_s_type value. */
  int total_size;     /**< Bytes of all images of the package. */
  int upgraded_size;  /**< Bytes of the images that are installed so far. */
} z_upgrade_status_info_t;

/** What vemk_dual_upgrade() reports to while it runs; both members stay the caller's. */
typedef struct {
  /** Filled before each callback. May be null; then no callback is made either. */
  z_upgrade_status_info_t* status;
  /**
   * Called on the upgrade's thread after each change, with the address of the status record as
   * its single argument; the upgrade waits for it. May be null. Declared without a parameter list
   * for the sake of older hosts: cast a function that takes a z_upgrade_status_info_t*.
   */
  void (*status_cb)();
} z_upgrade_flush_status_t;

/** One system's entry in the boot flag record. */
typedef struct {
  int system;  /**< DUAL_SYSTEM or DUAL_SYSTEM2. */
  int status;  /**< A T_DUALSYSTEM_STATUS value, or whatever the boot loader stored. */
  int try_cnt; /**< Boot attempts, counted by the boot loader alone. */
} z_system_info_t;

/** The boot flag record, as a host sees it. */
typedef struct {
  int boot_to;              /**< System that boots next: DUAL_SYSTEM or DUAL_SYSTEM2. */
  int fota_status;          /**< 1: a switch waits for the host's acknowledgement; 0: none. */
  z_system_info_t system_1; /**< System A. */
  z_system_info_t system_2; /**< System B. */
} z_upgrade_system_info_t;

/* --- Package -------------------------------------------------------------------------------- */

/**
 * Checks "/cache/ovu_fota_ab/upgrade.package": its content digest, every image's digest, and that
 * every partition that it carries exists in the system that is not running.
 * Writes nothing to flash. The store's upgrade status ends at UPGRADE_STATUS_VERIFY_SUCCESS or
 * UPGRADE_STATUS_VERIFY_FAIL.
 * @return 0 when the package is good, -1 otherwise.
 */
int vemk_dual_verify(void);

/**
 * Reads which partitions the package carries.
 * @return the head's upgrade_type: 0 every system partition, 1 platform partitions, 2 OEM
 * partitions, or any other value that a package without partitions holds; -1 when the package
 * cannot be loaded.
 */
int vemk_dual_get_upgrade_type(void);

/**
 * Installs the package into the system that is not running. The package is not verified again:
 * call vemk_dual_verify() first. The target is unbootable from before its first erase until all
 * images are written and checked, then bootable. Partitions that already hold their image are
 * skipped, so an interrupted upgrade is resumed by calling again. The boot target is not changed.
 * @param flush_status receives progress, once per partition. May be null. Must stay valid until
 * the call returns.
 * @return 0 on success. Also 0 when the preparation failed (no work folder, no loadable package,
 * target not markable) and the target could be marked unbootable afterwards: such a failure shows
 * only as UPGRADE_STATUS_UPDATE_FAIL in the store and in the status record, so check that.
 * -1 on every other failure; the target then stays unbootable.
 */
int vemk_dual_upgrade(z_upgrade_flush_status_t* flush_status);

/**
 * Reads the progress of the last verification or upgrade from the store; any process may ask.
 * @param upgrade_info filled; must not be null. Keys that were never written read as 0.
 * @return 0.
 */
int vemk_dual_get_upgrade_status(z_upgrade_status_info_t* upgrade_info);

/* --- Synchronisation ------------------------------------------------------------------------ */

/**
 * Makes the system that is not running a copy of the running one, partition by partition, where
 * their contents differ. The target is unbootable while this runs and after a failure, bootable
 * after success. The boot target is not changed.
 * @return 0 when the systems are equal now (also when they were), -1 otherwise.
 */
int vemk_dual_sync_system(void);

/** Stores the state of the last synchronisation through @p sync_status, which must not be null. */
void vemk_dual_get_sync_status(int* sync_status);

/**
 * Sets the state of the synchronisation in the store.
 * @param sync_status SYNC_STATUS_FAIL, SYNC_STATUS_SUCCESS or SYNC_STATUS_SYNCING.
 * @return 0, or -1 for any other value; the store is then left alone.
 */
int vemk_dual_set_sync_status(int sync_status);

/* --- Boot control --------------------------------------------------------------------------- */

/** @return the running system, DUAL_SYSTEM or DUAL_SYSTEM2, or -1 when it cannot be told. */
int vemk_dual_get_current_system(void);

/** @return the system that boots next, or -1 when no valid boot flag record is found. */
int vemk_dual_get_boot_to_system(void);

/**
 * Reads the boot flag record.
 * @param system_info filled on success, left alone on failure; must not be null.
 * @return 0, or -1 when no valid record is found.
 */
int vemk_dual_get_system_status(z_upgrade_system_info_t* system_info);

/**
 * Chooses the system that boots next. When that changes the target, fota_status becomes 1; no
 * system's status changes.
 * @param system DUAL_SYSTEM or DUAL_SYSTEM2.
 * @param reboot_flag exactly 1 runs "reboot" after the record was written.
 * @return 0, or -1 for any other system or when the record could not be read or written.
 */
int vemk_dual_set_boot_to_system(int system, int reboot_flag);

/**
 * Records a system's health in the boot flag record; nothing else of it changes.
 * @param system DUAL_SYSTEM or DUAL_SYSTEM2.
 * @param status a T_DUALSYSTEM_STATUS value.
 * @return 0, or -1 for any other value or when the record could not be read or written.
 */
int vemk_dual_set_system_status(int system, int status);

/**
 * Reads fota_status from the boot flag record (not from the store, despite the name).
 * @return 0 or 1 (or what the record holds), or -1 when no valid record is found.
 */
int vemk_dual_get_fota_status_for_nv(void);
/** vemk_dual_get_fota_status_for_nv() under the name that older hosts link against. */
int dual_AB_get_fota_status_for_nv(void);

/**
 * Sets fota_status in the boot flag record (not in the store, despite the name). Writes nothing
 * when both copies hold the value already.
 * @param status 0 acknowledges a switch, 1 marks one.
 * @return 0, or -1 for any other value or when the record could not be read or written.
 */
int vemk_dual_set_fota_status_for_nv(int status);
/** vemk_dual_set_fota_status_for_nv() under the name that older hosts link against. */
int dual_AB_set_fota_status_for_nv(int status);

/**
 * Overwrites the "flags" partition with up to 8 copies of a fresh record: both systems bootable,
 * A boots next, fota_status 0. What stood there is lost, valid or not.
 * @return 0 when at least 2 copies were written, -1 otherwise.
 */
int vemk_init_flag_partition(void);

/* --- Log ------------------------------------------------------------------------------------ */

/** Closes the log file; the next diagnostic opens it again. */
void upi_close_logfile(void);

/* --- The configuration store ---------------------------------------------------------------- */

/*
 * The platform's store, which the host process must define; the library only calls it. Every
 * result is ignored: a failed write is silent, a failed read reads as 0.
 *
 *   int sc_cfg_set(const char* name, const char* value);    records a text under a name
 *   int sc_cfg_save(void);                                  makes all of them outlive a reboot
 *   int sc_cfg_get(const char* name, char* value, int len); copies at most len bytes; leaves the
 *                                                           buffer alone for an unknown name
 */

#ifdef __cplusplus
}
#endif

#endif
