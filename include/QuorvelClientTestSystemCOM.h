/**
 * @file QuorvelClientTestSystemCOM.h
 * @brief The client of a test system's communication box.
 */
#ifndef QUORVEL_CLIENT_TEST_SYSTEM_COM_H
#define QUORVEL_CLIENT_TEST_SYSTEM_COM_H

#include "QuorvelClient.h"

#include <fstream>
#include <string>

/**
 * The communication box of a test system (kind 13, TCP port 5012): takes configuration files, installs them
 * under a name and runs one of them.
 *
 * Threads and results as CQuorvelClient; outputs are written on success only. Besides, 0x0D20 (file could not
 * be opened) comes from the library or the box, and from the box 0x0D21 (transfer did not complete), 0x0D22
 * (CRC mismatch), 0x0D23 (configuration is active already), 0x0D24 (could not stop the active one) and 0x0D25
 * (could not start).
 */
class QUORVEL_API CQuorvelClientTestSystemCOM : public CQuorvelClient
{
  public:
    /**
     * A client that is not connected yet.
     * @param nTimeout default time-out in milliseconds, see CQuorvelClient
     */
    explicit CQuorvelClientTestSystemCOM(int nTimeout);
    ~CQuorvelClientTestSystemCOM() override;

    /**
     * Makes a configuration the active one.
     * @param strName its name
     * @return result code
     */
    int SetConfig(const std::string& strName);

    /**
     * Asks for the active configuration.
     * @param strName receives its name; empty when the box names none
     * @return result code
     */
    int GetConfig(std::string& strName);

    /**
     * Asks whether a configuration is installed.
     * @param strName    its name
     * @param bAvailable receives whether it is; left alone when the answer does not tell
     * @param nValue     receives the box's number for it; left alone when the answer holds none
     * @return result code
     */
    int IsConfigAvailable(const std::string& strName, bool& bAvailable, unsigned int& nValue);

    /**
     * Sends a file to the box, in pieces of 32768 bytes; each is an exchange with the client's time-out. Takes
     * as much memory for a long file as for a short one.
     * @param strPath the file; the box gets the part behind the last slash or backslash, at most 255 bytes of
     * it
     * @param nCRC    the CRC-32 to announce, used unchecked; 0 has it computed
     * @return 0; 0x0D20 when the path leads to no regular file that can be read, and nothing was sent;
     * 0x00920000 when the file is longer than 4294967295 bytes, and nothing was sent; 0x0D21 when the box
     * still asks for more after the file's end, or after the end of a file that became shorter meanwhile;
     * else what the last exchange gave. A box that answers 0 before it has the whole file has ended the
     * transfer, and the result is 0.
     */
    int SendFile(const std::string& strPath, unsigned int nCRC = 0);

    /**
     * Installs a file sent before as a configuration.
     * @param strConfig name of the configuration, at most 255 bytes of it
     * @param strPath   the file as given to SendFile; it is read for its CRC-32
     * @return result code; 0x0D20 when the file cannot be read here, and nothing was sent
     */
    int InstallConfig(const std::string& strConfig, const std::string& strPath);

    /**
     * The last component of a path.
     * @param strPath path with slashes or backslashes, or neither
     * @return what is behind the last of them
     */
    static std::string GetFileName(const std::string& strPath);

    /**
     * The CRC-32 of a whole file (reflected, polynomial 0x04C11DB7, as zip and Ethernet have it).
     * @param oFile the file, opened as binary; read from its beginning. bad() tells whether reading failed.
     * @return the CRC; 0 for an empty file
     */
    static unsigned int GetCRC32(std::ifstream& oFile);
};

#endif
