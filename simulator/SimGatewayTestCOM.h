/**
 * @file SimGatewayTestCOM.h
 * @brief The simulated communication box of a test system.
 */
#ifndef QUORVEL_SIM_GATEWAY_TEST_COM_H
#define QUORVEL_SIM_GATEWAY_TEST_COM_H

#include "SimGateway.h"

#include <map>
#include <optional>

/**
 * Device kind 13. Commands, numbers little-endian:
 *  - 0xD3 send file: CRC-32 of the file (4 bytes), its size (4), length of its name (1), name, first piece;
 *    0xD4 the next piece. 0x21 asks for the next piece; with the last one the file is stored, or forgotten
 *    with 0x22 when its CRC is another. Each connection sends one file at a time, and one that ends before the
 *    file does leaves nothing behind.
 *  - 0xD5 install: CRC-32 of the file (4), length and name of the configuration, length and name of the file
 *  - 0xD2 is available: name; answers 1 or 0 and the CRC-32 of the configuration's file (4)
 *  - 0x05 set configuration: name; 0x06 get configuration: answers the name of the active one, empty at first
 *
 * 0x20: a file without a name, or one for which there is no room (256 MiB and 1000 files in all); a piece without
 * a file; a file to be installed that is not there, or as the 1001st configuration. 0x22: it has another CRC.
 * 0x23: the configuration to be set is active already. 0x24: the active one cannot be stopped, because digital
 * input 0 is on. 0x25: the one to be set is not installed, or its file is empty. A failure leaves everything as
 * it was, but more bytes than announced (0xFF) end the transfer.
 *
 * A restart leaves files and installed configurations, but none is active.
 */
class CSimGatewayTestCOM : public CSimGateway
{
  public:
    /// Bytes of all files, also of those under way.
    static constexpr std::size_t nCapacity = std::size_t{256} << 20;
    /// How many files, and how many configurations, there can be.
    static constexpr std::size_t nMaxEntries = 1000;

    CSimGatewayTestCOM();
    ~CSimGatewayTestCOM() override;

    /// The content of a stored file; nothing when there is none of that name.
    std::optional<std::string> GetFile(const std::string& strName) const;

  protected:
    SSimAnswer Execute(const SSimRequest& oRequest) override;
    void PowerOn() override;
    void OnEnd(unsigned nConnection) override;

  private:
    struct SFile {
        unsigned nCRC = 0;
        std::string strContent;
    };
    struct STransfer {
        std::string strName;
        std::size_t nSize = 0;
        unsigned nRegister = 0xFFFFFFFFU; ///< of the CRC, over what has come
        SFile oFile;                      ///< with the CRC announced
    };
    struct SConfig {
        unsigned nCRC = 0;
        bool bEmpty = false;
    };

    unsigned char BeginFile(const SSimRequest& oRequest);
    unsigned char ContinueFile(unsigned nConnection, const std::string& strPiece);
    unsigned char Install(const std::string& strData);
    unsigned char SetConfig(const std::string& strName);
    SSimAnswer IsAvailable(const std::string& strName) const;
    std::size_t UsedBytes() const;

    std::map<unsigned, STransfer> m_aoTransfers; ///< by connection
    std::map<std::string, SFile> m_aoFiles;
    std::map<std::string, SConfig> m_aoConfigs;
    std::string m_strActive;
};

#endif
