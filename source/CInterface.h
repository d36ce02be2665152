// What the functions of the C interface share.
#ifndef QUORVEL_C_INTERFACE_H
#define QUORVEL_C_INTERFACE_H

#include "DeviceManager.h"
#include "Guarded.h"

#include <string>

namespace NCInterface
{

constexpr int RC_INVALID_HANDLE = 0x00900000;

// Runs a request on the client of a handle. An entry without client succeeds without doing anything.
template<class FRequest>
int Request(int nHandle, FRequest fnRequest) noexcept
{
    return Guarded([&] {
        const CDevice* const pDevice = CDeviceManager::GetDevice(nHandle);
        if (pDevice == nullptr)
            return RC_INVALID_HANDLE;
        return pDevice->m_pClient != nullptr ? fnRequest(*pDevice->m_pClient) : 0;
    });
}

// Copies a text and its terminator to a caller's buffer; the number of bytes written.
int CopyText(std::string strText, char* pcMessage, int nMessageLen);

} // namespace NCInterface

#endif
