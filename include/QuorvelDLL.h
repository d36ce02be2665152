/**
 * @file QuorvelDLL.h
 * @brief Library version, device information and status by handle, for any device kind. Plain C.
 *
 * All functions may be called from any thread.
 */
#ifndef QUORVEL_DLL_H
#define QUORVEL_DLL_H

#include "DeviceInfo.h"
#include "QuorvelExport.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The library's name and version, "Quorvel SPI DLL V1.3-2.13". */
extern QUORVEL_API const char* gsDLLVersionString;

/**
 * The library's name and version. A text that does not fit loses its first character as well as its end.
 * @param pcMessage   receives the text and a terminating zero; with null nothing is done
 * @param nMessageLen its size in bytes
 * @return number of bytes written, the terminator included; 0 when pcMessage is null or nMessageLen below 1
 */
QUORVEL_API int DLLInfo(char* pcMessage, int nMessageLen);

/**
 * Asks a gateway for its device information.
 * @param nHandle the handle
 * @param pInfo   receives the record; cleared first, also for an unknown handle. Null is refused.
 * @return 0; 0x00920000 for a null pInfo; 0x00900000 for an unknown handle; any result code of the exchange
 */
QUORVEL_API int DeviceInfo(int nHandle, SQuorvelDeviceInfo* pInfo);

/**
 * Asks a gateway for its status text. A text longer than nMessageLen loses its first character as well as its
 * end; a text of exactly nMessageLen characters is copied whole, and its terminator lands one byte beyond, so
 * provide one spare byte.
 * @param nHandle     the handle
 * @param pcMessage   receives the text and a terminating zero; cleared, and left empty, when the exchange
 *                    fails; must hold nMessageLen + 1 bytes. With null nothing is asked.
 * @param nMessageLen size in bytes without the spare one; must not be 0
 * @return number of bytes written, the terminator included; 1, and nothing written, for an unknown
 *         handle and a null pcMessage
 */
QUORVEL_API int DeviceStatus(int nHandle, char* pcMessage, unsigned int nMessageLen);

#ifdef __cplusplus
}
#endif

#endif
