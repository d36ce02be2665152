/**
 * @file DeviceManager.h
 * @brief The process-wide table of open devices.
 */
#ifndef QUORVEL_DEVICE_MANAGER_H
#define QUORVEL_DEVICE_MANAGER_H

#include "QuorvelClient.h"
#include "QuorvelExport.h"
#include "support/ZelMutex.h"

#include <map>
#include <string>

/** One open device. */
class QUORVEL_API CDevice
{
  public:
    /** An entry without client. */
    CDevice() = default;

    /** Deletes the client if the entry owns it. */
    ~CDevice();
    CDevice(const CDevice&) = delete;
    CDevice& operator=(const CDevice&) = delete;

    CQuorvelClient* m_pClient = nullptr; ///< the client that serves the handle; null for none
    std::string m_strHost;               ///< address it was connected to
    int m_nPort = 0;                     ///< TCP port it was connected to
    int m_nHandle = 0;                   ///< the entry's own handle
    unsigned char m_eDeviceType = 0;     ///< device kind, an EQuorvelDevice value
    bool m_bOwnsClient = false;          ///< whether the entry deletes the client
};

/**
 * The table behind the handles: creates and connects the client of a device kind, numbers it, finds it again
 * and destroys it. Handles are 1, 2, 3, ... in the order of opening and are never reused in a process.
 *
 * All functions may be called from any thread; opening on different threads connects in parallel. A handle
 * must not be closed while another thread still uses it. Nothing is closed by itself when the library is
 * unloaded.
 */
class QUORVEL_API CDeviceManager
{
  public:
    /**
     * Creates a client, connects it and enters it under a new handle. The client's Open is not called.
     *
     * @param pnHandle     receives the handle: the new one; -1 when connecting failed or memory is used up; the
     *                     number that was used up, but leads nowhere, when the kind is unknown; untouched when
     *                     the port index is invalid. Null is refused.
     * @param pcIPAddress  IPv4 or IPv6 address or host name; null is not resolved
     * @param nTimeout     the client's time-out in milliseconds
     * @param nDeviceType  device kind: 1 (CQuorvelClientI2C), 2 (CQuorvelClientCANDll), 3 (CQuorvelClientSPI),
     *                     9 (CQuorvelClientRenesas), 11, 12, 13 and 17 (CQuorvelClientTestSystemIO, ...PWR,
     *                     ...COM and ...Relay), 14 (CQuorvelClientAWire)
     * @param nPortIndex   0 to 99; the TCP port is 4999 + kind + 100 x index
     * @param nProtocol    protocol selector, 1
     * @param bConnectFlag connect flag
     * @return 0; 0x00920000 invalid port index (or null pnHandle); 0x00910000 no client for this kind;
     *         0x000000FF no memory left; a connection failure
     */
    static int OpenDevice(int* pnHandle, const char* pcIPAddress, int nTimeout, unsigned char nDeviceType,
                          unsigned char nPortIndex, unsigned char nProtocol, bool bConnectFlag);

    /**
     * Enters a caller's own entry under a new handle. The table owns the entry from now on, but not its
     * client, which the caller keeps alive until the handle is closed, and deletes.
     * @param pnHandle receives the handle; -1 when memory is used up: then the entry stays the caller's. Must not be null.
     * @param pDevice  the entry, created by new; must not be null
     */
    static void SetDevice(int* pnHandle, CDevice* pDevice);

    /**
     * The entry of a handle.
     * @param nHandle the handle
     * @return the entry, valid until the handle is closed; null for an unknown handle
     */
    static CDevice* GetDevice(int nHandle);

    /**
     * Removes a handle, for one of several callers at once, and destroys its entry, with the client if the entry
     * owns it. Waits until a running indication of the client has returned; called from within that indication, the client is shut down at
     * once and destroyed when the indication has returned.
     * @param nHandle the handle
     * @return 0; 0x00900000 for an unknown handle
     */
    static int CloseDevice(int nHandle);

    /** Closes every handle, in ascending order. */
    static void CloseAllDevices();

  protected:
    /**
     * Takes an entry out of the table: of several callers at once, one gets it.
     * @param nHandle the handle
     * @return the entry, to be given to Destroy; null for an unknown handle
     */
    static CDevice* Remove(int nHandle);

    /**
     * Destroys an entry that was taken out, with the client if the entry owns it, and traces that it is closed. Waits as
     * CloseDevice.
     * @param nHandle its former handle
     * @param pDevice the entry; with null it is only traced
     */
    static void Destroy(int nHandle, CDevice* pDevice);

    // Never destroyed: receive threads may still ask for handles while the process ends.
    static int m_nMaxHandle;                       ///< the last number given; guarded by m_oMutexMaxHandle
    static std::map<int, CDevice*>& m_aoHandleMap; ///< owns the entries; guarded by m_oMutexHandleMap
    static CZelMutex& m_oMutexHandleMap;           ///< held for a look at the table only
    static CZelMutex& m_oMutexMaxHandle;           ///< held while a number is taken

  private:
    static int NewHandle(int* pnHandle);
    static void Register(int nHandle, CDevice* pDevice);
};

#endif
