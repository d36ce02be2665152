#include "QuorvelDLL.h"

#include "CInterface.h"

#include <cstring>

const char* gsDLLVersionString = "Quorvel SPI DLL V1.3-2.13";

namespace
{

constexpr int RC_INVALID_PARAMETER = 0x00920000;

} // namespace

int NCInterface::CopyText(std::string strText, char* pcMessage, int nMessageLen)
{
    if (nMessageLen < 1 || pcMessage == nullptr)
        return 0;
    // A text that is cut loses its first character too: existing applications rely on it.
    if (static_cast<std::size_t>(nMessageLen) < strText.size() + 1)
        strText = strText.substr(1, static_cast<std::size_t>(nMessageLen) - 1);
    std::memcpy(pcMessage, strText.c_str(), strText.size() + 1);
    return static_cast<int>(strText.size() + 1);
}

int DLLInfo(char* pcMessage, int nMessageLen)
{
    return Guarded([&] { return NCInterface::CopyText(gsDLLVersionString, pcMessage, nMessageLen); }, 0);
}

int DeviceInfo(int nHandle, SQuorvelDeviceInfo* pInfo)
{
    if (pInfo == nullptr)
        return RC_INVALID_PARAMETER;
    *pInfo = {};
    return NCInterface::Request(nHandle, [&](CQuorvelClient& oClient) { return oClient.Info(pInfo); });
}

int DeviceStatus(int nHandle, char* pcMessage, unsigned int nMessageLen)
{
    return Guarded(
        [&] {
            const CDevice* const pDevice = CDeviceManager::GetDevice(nHandle);
            if (pDevice == nullptr || pDevice->m_pClient == nullptr || pcMessage == nullptr)
                return 1;
            std::string strStatus;
            if (pDevice->m_pClient->Status(strStatus) != 0)
                std::memset(pcMessage, 0, nMessageLen);
            // Cut only when longer than the size, unlike CopyText, with the first character lost as there; a size
            // of 0 wraps and keeps the rest whole. Existing applications rely on it and provide a spare byte.
            if (strStatus.size() > nMessageLen)
                strStatus = strStatus.substr(1, nMessageLen - 1);
            std::memcpy(pcMessage, strStatus.c_str(), strStatus.size() + 1);
            return static_cast<int>(strStatus.size() + 1);
        },
        1);
}
