#include "QuorvelDllSPI.h"

#include "CInterface.h"
#include "SPICommands.h"

using NCInterface::Request;

int SPIOpenDevice(int* pnHandle, const char* pcIPAddress, int nTimeout)
{
    return Guarded([&] {
        int nRC = CDeviceManager::OpenDevice(pnHandle, pcIPAddress, nTimeout, eDeviceSPI, 0,
                                             CZelIPBase::eProtocolTCP, true);
        if (nRC != 0)
            return nRC;
        const CDevice* const pDevice = CDeviceManager::GetDevice(*pnHandle);
        if (pDevice == nullptr)
            return NCInterface::RC_INVALID_HANDLE;
        nRC = pDevice->m_pClient->Open();
        if (nRC != 0) {
            SPICloseDevice(*pnHandle);
            *pnHandle = -1;
        }
        return nRC;
    });
}

int SPICloseDevice(int nHandle)
{
    struct STable : CDeviceManager {
        using CDeviceManager::Destroy;
        using CDeviceManager::Remove;
    };
    // Taken out before it is used: whoever closes the same handle at the same time finds it gone.
    CDevice* const pDevice = STable::Remove(nHandle);
    if (pDevice == nullptr)
        return NCInterface::RC_INVALID_HANDLE;
    const int nRC = Guarded([&] {
        if (pDevice->m_pClient != nullptr)
            pDevice->m_pClient->Close();
        return 0;
    });
    STable::Destroy(nHandle, pDevice);
    return nRC;
}

int SPIDataReq(int nHandle, const char* pBufWrite, unsigned short nBufWriteLen, char* pBufRead,
               unsigned short nBufReadLen)
{
    return Request(nHandle, [&](CQuorvelClient& oClient) {
        return NSPICommands::DataReq(oClient, pBufWrite, nBufWriteLen, pBufRead, nBufReadLen);
    });
}

int SPISequenceReq(int nHandle, const char* pSequence, unsigned short nLen, short* pnID)
{
    return Request(nHandle, [&](CQuorvelClient& oClient) {
        return NSPICommands::SequenceReq(oClient, pSequence, nLen, pnID);
    });
}

int SPISequenceGetCnf(int nHandle, short nID, char* pBufRead, unsigned short nBufReadLen)
{
    return Request(nHandle, [&](CQuorvelClient& oClient) {
        return NSPICommands::SequenceGetCnf(oClient, nID, pBufRead, nBufReadLen);
    });
}

int SPIReadDigital(int nHandle, unsigned int* pnInputs, unsigned int* pnOutputs)
{
    return Request(nHandle,
                   [&](CQuorvelClient& oClient) { return oClient.BaseReadDigital(*pnInputs, *pnOutputs); });
}

int SPIWriteDigital(int nHandle, unsigned int nOutputs)
{
    return Request(nHandle, [&](CQuorvelClient& oClient) { return oClient.BaseWriteDigital(nOutputs); });
}

int SPISetGlobals(int nHandle, unsigned int nBaudrate, unsigned char nSigLevel, unsigned char nAuxVoltage,
                  unsigned char nClockMode)
{
    return Request(nHandle, [&](CQuorvelClient& oClient) {
        return NSPICommands::SetGlobals(oClient, nBaudrate, nSigLevel, nAuxVoltage, nClockMode);
    });
}

int SPIGetGlobals(int nHandle, unsigned int* pnBaudrate, unsigned char* pnSigLevel,
                  unsigned char* pnAuxVoltage, unsigned char* pnClockMode)
{
    return Request(nHandle, [&](CQuorvelClient& oClient) {
        unsigned int nBaudrate = 0;
        unsigned char nSigLevel = 0;
        unsigned char nAuxVoltage = 0;
        unsigned char nClockMode = 0;
        const int nRC = NSPICommands::GetGlobals(oClient, nBaudrate, nSigLevel, nAuxVoltage, nClockMode);
        // Copied whatever the result: applications may find zeros there after a failure, never old values.
        const auto fnStore = [](auto* pTo, auto nValue) {
            if (pTo != nullptr)
                *pTo = nValue;
        };
        fnStore(pnBaudrate, nBaudrate);
        fnStore(pnSigLevel, nSigLevel);
        fnStore(pnAuxVoltage, nAuxVoltage);
        fnStore(pnClockMode, nClockMode);
        return nRC;
    });
}

int SPIErrorMessage(int nRC, char* pcMessage, int nMessageLen)
{
    return Guarded(
        [&] { return NCInterface::CopyText(CQuorvelClient::GetErrorMsg(nRC), pcMessage, nMessageLen); }, 0);
}
