/**
 * @file QuorvelDllSPI.h
 * @brief The SPI gateway by handle. Plain C.
 *
 * All functions may be called from any thread; several threads on one handle are served one after the other.
 * A handle must not be closed while another thread still uses it. Unless stated otherwise a function returns
 * 0 on success or a result code (SPIErrorMessage gives its text), among them:
 *
 * | code                     | meaning                                                   |
 * |--------------------------|-----------------------------------------------------------|
 * | 0x00020000               | socket error, refused, name not resolved, request too long |
 * | 0x00030000               | not connected (any more)                                  |
 * | 0x00040000               | no answer within the time-out                             |
 * | 0x000A0000 to 0x000C0300 | a bad confirmation                                        |
 * | 0x00900000               | unknown handle                                            |
 * | 0x00920000               | no place for a new handle (null)                          |
 * | 0x000003xx               | the gateway's own code                                    |
 * | 0x000000FF               | no memory left; the request may have been sent             |
 *
 * The functions do not check the device kind of a handle; use handles from SPIOpenDevice.
 */
#ifndef QUORVEL_DLL_SPI_H
#define QUORVEL_DLL_SPI_H

#include "QuorvelExport.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Opens an SPI gateway (TCP port 5002).
 * @param pnHandle    receives the handle; -1 on failure. Null is refused with 0x00920000.
 * @param pcIPAddress IPv4 or IPv6 address or host name; null is not resolved
 * @param nTimeout    milliseconds for connecting, and later for every request and its answer
 * @return result code
 */
QUORVEL_API int SPIOpenDevice(int* pnHandle, const char* pcIPAddress, int nTimeout);

/**
 * Closes a gateway and frees its handle. Of several that close the same handle at once, one closes it; the others find
 * it unknown.
 * @param nHandle the handle
 * @return 0; 0x00900000 for an unknown handle
 */
QUORVEL_API int SPICloseDevice(int nHandle);

/**
 * One full-duplex transfer: the larger of the two lengths is clocked, zeros following the bytes to write.
 * @param nHandle      the handle
 * @param pBufWrite    the bytes to write; with null, zeros are clocked for as long as is read
 * @param nBufWriteLen how many, at most 65528
 * @param pBufRead     receives the bytes read, at most nBufReadLen; filled also when the gateway reports an
 *                     error, untouched when no good confirmation came; may be null
 * @param nBufReadLen  its size, at most 65528
 * @return result code
 */
QUORVEL_API int SPIDataReq(int nHandle, const char* pBufWrite, unsigned short nBufWriteLen, char* pBufRead,
                           unsigned short nBufReadLen);

/**
 * Has the gateway run a sequence and returns without waiting.
 * @param nHandle   the handle
 * @param pSequence the sequence: op codes and operands as the gateway defines them; null sends none
 * @param nLen      its length
 * @param pnID      receives the id for SPISequenceGetCnf; may be null
 * @return result code
 */
QUORVEL_API int SPISequenceReq(int nHandle, const char* pSequence, unsigned short nLen, short* pnID);

/**
 * Waits, at most the time-out, for the answer of a sequence.
 * @param nHandle     the handle
 * @param nID         what SPISequenceReq gave
 * @param pBufRead    receives the data that the sequence collected; may be null
 * @param nBufReadLen its size
 * @return result code
 */
QUORVEL_API int SPISequenceGetCnf(int nHandle, short nID, char* pBufRead, unsigned short nBufReadLen);

/**
 * Reads the gateway's digital lines.
 * @param nHandle   the handle
 * @param pnInputs  receives the input bits; must not be null
 * @param pnOutputs receives the output bits; must not be null
 * @return result code; the outputs are left as they are unless it is 0
 */
QUORVEL_API int SPIReadDigital(int nHandle, unsigned int* pnInputs, unsigned int* pnOutputs);

/**
 * Sets the gateway's digital outputs.
 * @param nHandle  the handle
 * @param nOutputs the output bits
 * @return result code
 */
QUORVEL_API int SPIWriteDigital(int nHandle, unsigned int nOutputs);

/**
 * Sets the bus.
 * @param nHandle     the handle
 * @param nBaudrate   bits per second
 * @param nSigLevel   signal level, as the gateway defines it
 * @param nAuxVoltage auxiliary voltage, as the gateway defines it
 * @param nClockMode  clock mode, as the gateway defines it
 * @return result code
 */
QUORVEL_API int SPISetGlobals(int nHandle, unsigned int nBaudrate, unsigned char nSigLevel,
                              unsigned char nAuxVoltage, unsigned char nClockMode);

/**
 * Reads the bus settings. Each output may be null; when the result is not 0 what they receive has no meaning.
 * @param nHandle      the handle
 * @param pnBaudrate   receives bits per second
 * @param pnSigLevel   receives the signal level
 * @param pnAuxVoltage receives the auxiliary voltage
 * @param pnClockMode  receives the clock mode
 * @return result code
 */
QUORVEL_API int SPIGetGlobals(int nHandle, unsigned int* pnBaudrate, unsigned char* pnSigLevel,
                              unsigned char* pnAuxVoltage, unsigned char* pnClockMode);

/**
 * The text of a result code. A text that does not fit loses its first character as well as its end.
 * @param nRC         the code
 * @param pcMessage   receives the text and a terminating zero; with null nothing is done
 * @param nMessageLen its size in bytes
 * @return number of bytes written, the terminator included; 0 when pcMessage is null or nMessageLen below 1
 */
QUORVEL_API int SPIErrorMessage(int nRC, char* pcMessage, int nMessageLen);

#ifdef __cplusplus
}
#endif

#endif
