// The SPI gateway, as the verbs use it.
#ifndef QUORVEL_TOOL_SPI_GATEWAY_H
#define QUORVEL_TOOL_SPI_GATEWAY_H

#include "Gateway.h"
#include "QuorvelClientSPI.h"
#include "Text.h"

#include <atomic>
#include <string>
#include <string_view>

/// The SPI client, which also tells how much an answer held: short ones would pass for zeros.
class CSpiGateway : public CGateway<CQuorvelClientSPI>
{
  public:
    /// The most bytes that an answer holds.
    static constexpr std::size_t MAX_TRANSFER = 65527;

    explicit CSpiGateway(CTool& oTool) : CGateway(oTool) {}
    ~CSpiGateway() override { StopReception(); }

    /**
     * One frame on the bus.
     * @param strOperation what it is for
     * @param strWrite     the bytes to write
     * @param strRead      as long as what is to be read, from the first clock on; receives it
     * @return 0, or the exit status of a failure, which was reported
     */
    int Transfer(std::string_view strOperation, std::string_view strWrite, std::string& strRead)
    {
        m_nAnswered = 0;
        const int nRC = DataReq(strWrite.data(), static_cast<unsigned short>(strWrite.size()), strRead.data(),
                                static_cast<unsigned short>(strRead.size()));
        return nRC == 0 ? CheckLength(strOperation, strRead.size()) : Check(std::string(strOperation), nRC);
    }

    /// Reports an answer that holds less than it should. @return 0, or the exit status
    int CheckLength(std::string_view strOperation, std::size_t nLength) const
    {
        constexpr int RC_SHORT_ANSWER = 0x000C0000;
        if (GetAnswered() >= nLength)
            return eStatusDone;
        return Check(fmt::format("{}: the answer holds {} instead of {}", strOperation,
                                 Plural(GetAnswered(), "byte"), nLength),
                     RC_SHORT_ANSWER);
    }

    /// @return the number of bytes in the last answer, behind its result
    std::size_t GetAnswered() const { return m_nAnswered; }

    /// Notes the length.
    void DataInd(const char* pData, unsigned short nLen) override
    {
        // Length, code, id, result and check byte take 8; bit 15 of the code marks an answer.
        if (nLen >= 8 && (static_cast<unsigned char>(pData[3]) & 0x80) != 0)
            m_nAnswered = nLen - 8U;
        CGateway::DataInd(pData, nLen);
    }

  private:
    std::atomic<std::size_t> m_nAnswered{0};
};

#endif
