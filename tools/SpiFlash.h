// Serial NOR flash memories of the 25 series behind an SPI gateway.
#ifndef QUORVEL_TOOL_SPI_FLASH_H
#define QUORVEL_TOOL_SPI_FLASH_H

#include "Image.h"
#include "Progress.h"
#include "SpiGateway.h"
#include "Verify.h"

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/**
 * A flash memory of any size; beyond 16 MiB it is driven with the commands that take addresses of 4 bytes. Every
 * function reports its failures and returns 0 or an exit status.
 */
class CSpiFlash
{
  public:
    /// The chip, and how it is written.
    struct SOptions {
        std::uint64_t nSize = 0; ///< bytes; 0: told by the chip's id
        unsigned nPage = 256;    ///< bytes that one command programs at most, a power of two
        unsigned nErase = 0;     ///< SECTOR or BLOCK: erases with nothing else; 0: with what fits
        bool bErase = true;      ///< erases before programming, where bits have to be set
        bool bPreserve = true;   ///< what is erased besides the data is programmed again
    };

    static constexpr unsigned SECTOR = 4096; ///< the smaller erase unit
    static constexpr unsigned BLOCK = 65536; ///< the larger erase unit

    CSpiFlash(CTool& oTool, const SOptions& oOptions);

    /// Connects, and finds out the size if it is not given.
    int Open();

    /// Reads the 3 bytes of the id; none at all is a failure.
    int ReadId(std::string& strId);

    /// @return the size that an id tells; 0 if it does not
    static std::uint64_t GetSize(std::string_view strId);

    /// @return the size in bytes
    std::uint64_t GetSize() const { return m_oOptions.nSize; }

    /**
     * Reads, and shows the progress.
     * @param pTitle  what the progress is called
     * @param aoSpans what to read, ascending
     * @param oRead   receives it
     */
    int Read(const char* pTitle, const std::vector<SAddresses>& aoSpans, CImage& oRead);

    /**
     * Writes an image. Only what differs from the memory's content is erased and programmed.
     * @param oImage lies within the memory
     */
    int Write(const CImage& oImage);

    /// Erases a range. @param nAddress first byte @param nLength how many
    int Erase(std::uint64_t nAddress, std::uint64_t nLength);

    /// Erases the whole chip with one command.
    int EraseAll();

    /// Compares with an image. @param oVerify receives what is there
    int Verify(const CImage& oImage, CVerify& oVerify);

    /// @return the number of bytes that Write and Erase have erased
    std::uint64_t GetErased() const { return m_nErased; }

    /// @return the number of bytes that Write and Erase have programmed
    std::uint64_t GetProgrammed() const { return m_nProgrammed; }

  private:
    struct SUpdate;

    std::string Address(unsigned char nShort, unsigned char nLong, std::uint64_t nAddress) const;
    int ReadRange(std::uint64_t nAddress, char* pBytes, std::size_t nLength);
    int ReadStatus(unsigned char& nStatus);
    int WaitReady(std::string_view strOperation, std::chrono::milliseconds oLimit);
    int Change(std::string_view strOperation, std::string_view strFrame, std::chrono::milliseconds oLimit);
    int Update(const CImage& oImage, bool bErasing, CProgress& oProgress);
    int UpdateBlock(SUpdate& oUpdate);
    int ReadOld(SUpdate& oUpdate);
    int EraseOld(SUpdate& oUpdate);
    int ProgramNew(SUpdate& oUpdate);

    CTool& m_oTool;
    SOptions m_oOptions;
    CSpiGateway m_oSpi;
    std::string m_strBuffer; // of transfers
    std::uint64_t m_nErased = 0;
    std::uint64_t m_nProgrammed = 0;
};

#endif
