#include "DeviceManager.h"

#include "Guarded.h"
#include "QuorvelClientAWire.h"
#include "QuorvelClientCANDll.h"
#include "QuorvelClientI2C.h"
#include "QuorvelClientRenesas.h"
#include "QuorvelClientSPI.h"
#include "QuorvelClientTestSystemCOM.h"
#include "QuorvelClientTestSystemIO.h"
#include "QuorvelClientTestSystemPWR.h"
#include "QuorvelClientTestSystemRelay.h"
#include "Trace.h"
#include "support/ZelTools.h"

#include <memory>
#include <new>

int CDeviceManager::m_nMaxHandle = 0;
std::map<int, CDevice*>& CDeviceManager::m_aoHandleMap = *new std::map<int, CDevice*>;
CZelMutex& CDeviceManager::m_oMutexHandleMap = *new CZelMutex;
CZelMutex& CDeviceManager::m_oMutexMaxHandle = *new CZelMutex;

namespace
{

constexpr const char* UNIT = "source/DeviceManager";
constexpr unsigned char MAX_PORT_INDEX = 99;
constexpr int RC_INVALID_HANDLE = 0x00900000;
constexpr int RC_INVALID_DEVICE_TYPE = 0x00910000;
constexpr int RC_INVALID_PARAMETER = 0x00920000;

std::string Hex(int nNumber)
{
    return ZelToString(static_cast<unsigned int>(nNumber), 16);
}

std::unique_ptr<CQuorvelClient> CreateClient(unsigned char nDeviceType, int nHandle, int nTimeout)
{
    switch (nDeviceType) {
    case eDeviceI2C:
        return std::make_unique<CQuorvelClientI2C>(nTimeout);
    case eDeviceCAN:
        return std::make_unique<CQuorvelClientCANDll>(nHandle, nTimeout);
    case eDeviceSPI:
        return std::make_unique<CQuorvelClientSPI>(nTimeout);
    case eDeviceRenesas:
        return std::make_unique<CQuorvelClientRenesas>(nTimeout);
    case eDeviceTestSystemIO:
        return std::make_unique<CQuorvelClientTestSystemIO>(nTimeout);
    case eDeviceTestSystemPWR:
        return std::make_unique<CQuorvelClientTestSystemPWR>(nTimeout);
    case eDeviceTestSystemCOM:
        return std::make_unique<CQuorvelClientTestSystemCOM>(nTimeout);
    case eDeviceTestSystemRelay:
        return std::make_unique<CQuorvelClientTestSystemRelay>(nTimeout);
    case eDeviceAWire:
        return std::make_unique<CQuorvelClientAWire>(nTimeout);
    default:
        return nullptr;
    }
}

} // namespace

CDevice::~CDevice()
{
    if (m_bOwnsClient)
        delete m_pClient;
}

int CDeviceManager::NewHandle(int* pnHandle)
{
    const CZelLock oLock(m_oMutexMaxHandle);
    return *pnHandle = ++m_nMaxHandle;
}

void CDeviceManager::Register(int nHandle, CDevice* pDevice)
{
    {
        const CZelLock oLock(m_oMutexHandleMap);
        m_aoHandleMap[nHandle] = pDevice;
    }
    Trace(16, UNIT, [nHandle] { return "Device handle 0x" + Hex(nHandle) + " is allocted."; });
}

int CDeviceManager::OpenDevice(int* pnHandle, const char* pcIPAddress, int nTimeout,
                               unsigned char nDeviceType, unsigned char nPortIndex, unsigned char nProtocol,
                               bool bConnectFlag)
try {
    if (nPortIndex > MAX_PORT_INDEX || pnHandle == nullptr)
        return RC_INVALID_PARAMETER;
    // The number is used up before the kind is checked, and stays with the caller: applications rely on it.
    const int nHandle = NewHandle(pnHandle);
    std::unique_ptr<CQuorvelClient> pClient = CreateClient(nDeviceType, nHandle, nTimeout);
    if (!pClient)
        return RC_INVALID_DEVICE_TYPE;

    auto pDevice = std::make_unique<CDevice>();
    pDevice->m_nHandle = nHandle;
    pDevice->m_nPort = nDeviceType + nPortIndex * 100 + 4999;
    pDevice->m_strHost = pcIPAddress != nullptr ? pcIPAddress : "";
    pDevice->m_eDeviceType = nDeviceType;
    pDevice->m_bOwnsClient = true;
    pDevice->m_pClient = pClient.release();

    const int nRC = pDevice->m_pClient->Connect(pcIPAddress, static_cast<unsigned short>(pDevice->m_nPort),
                                                nProtocol, bConnectFlag);
    if (nRC != 0) {
        *pnHandle = -1;
        Trace(2, UNIT, [nRC] { return "OpenDevice failed: RC =" + Hex(nRC); });
        return nRC;
    }
    Register(nHandle, pDevice.get());
    static_cast<void>(pDevice.release()); // the table's now
    return 0;
} catch (const std::bad_alloc&) {
    *pnHandle = -1;
    return RC_COMMAND_FAILED;
}

void CDeviceManager::SetDevice(int* pnHandle, CDevice* pDevice)
try {
    const int nHandle = NewHandle(pnHandle);
    pDevice->m_bOwnsClient = false;
    pDevice->m_nHandle = nHandle;
    Register(nHandle, pDevice);
} catch (const std::bad_alloc&) {
    *pnHandle = -1;
}

CDevice* CDeviceManager::GetDevice(int nHandle)
{
    const CZelLock oLock(m_oMutexHandleMap);
    const auto it = m_aoHandleMap.find(nHandle);
    return it == m_aoHandleMap.end() ? nullptr : it->second;
}

CDevice* CDeviceManager::Remove(int nHandle)
{
    const CZelLock oLock(m_oMutexHandleMap);
    const auto it = m_aoHandleMap.find(nHandle);
    if (it == m_aoHandleMap.end())
        return nullptr;
    CDevice* const pDevice = it->second;
    m_aoHandleMap.erase(it);
    return pDevice;
}

// Runs without the table's mutex: destroying a client waits for its running indication, which may be asking
// for a handle itself; so may a trace sink.
void CDeviceManager::Destroy(int nHandle, CDevice* pDevice)
{
    const bool bLater = pDevice != nullptr && pDevice->m_bOwnsClient && pDevice->m_pClient != nullptr &&
                        pDevice->m_pClient->RunAtEndOfReception([pDevice] { delete pDevice; });
    if (!bLater)
        delete pDevice;
    Trace(16, UNIT, [nHandle] { return "Device handle 0x" + Hex(nHandle) + " is closed."; });
}

int CDeviceManager::CloseDevice(int nHandle)
{
    CDevice* const pDevice = Remove(nHandle);
    if (pDevice == nullptr)
        return RC_INVALID_HANDLE;
    Destroy(nHandle, pDevice);
    return 0;
}

void CDeviceManager::CloseAllDevices()
{
    std::map<int, CDevice*> aoDevices;
    {
        const CZelLock oLock(m_oMutexHandleMap);
        aoDevices.swap(m_aoHandleMap);
    }
    for (const auto& [nHandle, pDevice] : aoDevices)
        Destroy(nHandle, pDevice);
}
