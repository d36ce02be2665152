/**
 * @file QuorvelClientFirmware.h
 * @brief The client that maintains a gateway itself.
 */
#ifndef QUORVEL_CLIENT_FIRMWARE_H
#define QUORVEL_CLIENT_FIRMWARE_H

#include "QuorvelClient.h"

#include <string>

/**
 * Maintenance of any gateway (kind 0, TCP port 5099): its program flash, its EEPROM, its device information,
 * and restarting it. There is no handle for it: use the class.
 *
 * Threads and results as CQuorvelClient; for kind 0 a gateway's own code is its result byte alone. Outputs are
 * written on success only, except as stated.
 *
 * New firmware: ClearFlash, then WriteFlash block by block, then Restart. Clearing may take longer than other
 * commands: choose the time-out for it.
 */
class QUORVEL_API CQuorvelClientFirmware : public CQuorvelClient
{
  public:
    /** The gateway's stored device information: the first 256 bytes of its EEPROM. */
    struct QUORVEL_API SQuorvelDeviceInfoEx {
        unsigned int nSerialNumber; ///< offset 0; stored with the most significant byte first, here a number
        unsigned int nHWVersion;    ///< offset 4, likewise: major in bits 16 to 30, minor in bits 0 to 15
        unsigned int nSWVersion;    ///< offset 8, likewise: major in bits 16 to 31, minor in bits 0 to 15
        char acReserved[244];       ///< offset 12: as the gateway's firmware defines it, taken as it is

        /** @return "major.minor"; for the hardware variant with bit 31 set "KTV-GW major.minor" */
        std::string GetHWVersionString() const;

        /** @return "major.minor" */
        std::string GetSWVersionString() const;
    };
    static_assert(sizeof(SQuorvelDeviceInfoEx) == 256, "as long as its image in the EEPROM");

    /**
     * A client that is not connected yet.
     * @param nTimeout default time-out in milliseconds, see CQuorvelClient
     */
    explicit CQuorvelClientFirmware(int nTimeout);
    ~CQuorvelClientFirmware() override;

    using CQuorvelClient::Open;

    /**
     * The logical opening after Connect: telegram ids start at 1 (with Open() at 2).
     * @param nReserved1 not used
     * @param nReserved2 not used
     * @return 0
     */
    int Open(int& nReserved1, int& nReserved2);

    /**
     * An offset as the EEPROM commands send it.
     * @param nOffset the offset
     * @param nFormat how many of its low bits count: bits 0 to 7 plus bits 8 and 9, modulo 32
     * @return four bytes, most significant first
     */
    static std::string ToOffset(unsigned int nOffset, unsigned int nFormat);

    /**
     * Reads the size of the EEPROM.
     * @param nSize receives it, in bytes; an answer that is too short replaces only its low bytes, or nothing
     * @return result code
     */
    int GetEEPromInfo(int& nSize);

    /**
     * Reads from the EEPROM.
     * @param nOffset first byte; only the low 16 bits count
     * @param pBuf    receives the bytes; with null none is stored
     * @param nLen    how many to read
     * @param nRead   receives how many came
     * @return result code, with bit 8 set when it is not 0: 0x0102 for a gateway's result 0x02, 0x00040100 for
     * a time-out
     */
    int ReadEEProm(unsigned int nOffset, char* pBuf, unsigned short nLen, unsigned short& nRead);

    /**
     * Writes to the EEPROM.
     * @param nOffset first byte; only the low 16 bits count
     * @param pData   the bytes; null sends none
     * @param nLen    how many; at most 65524 fit a telegram
     * @return result code, with bit 8 set when it is not 0, as ReadEEProm
     */
    int WriteEEProm(unsigned int nOffset, const char* pData, unsigned short nLen);

    /**
     * Clears the whole program flash, which must be done before it is written.
     * @return result code
     */
    int ClearFlash();

    /**
     * Reads one block of the program flash.
     * @param nBlock block number
     * @param pBuf   receives the bytes; must hold 2048. With null none is stored.
     * @param nLen   receives how many came, at most 2048; 0 on failure
     * @return result code
     */
    int ReadFlash(unsigned short nBlock, char* pBuf, unsigned int& nLen);

    /**
     * Writes one block of the program flash.
     * @param nBlock block number
     * @param pData  2048 bytes, always: fill up the last block of an image yourself. Null sends none.
     * @return result code
     */
    int WriteFlash(unsigned short nBlock, const char* pData);

    /**
     * Has the gateway restart; the connection is lost soon afterwards. Another command than the inherited one,
     * which is reached as CQuorvelClient::Restart.
     * @return result code
     */
    int Restart();

    /**
     * Reads the device information from the EEPROM.
     * @param oInfo receives it; left alone on failure
     * @return result code as ReadEEProm
     */
    int GetInfo(SQuorvelDeviceInfoEx& oInfo);

    /**
     * Writes the device information to the EEPROM.
     * @param oInfo what to write; left as it is
     * @return result code as WriteEEProm
     */
    int SetInfo(SQuorvelDeviceInfoEx& oInfo);
};

#endif
