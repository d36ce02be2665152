// The SPI gateway, as the verbs use it.
#ifndef QUORVEL_TOOL_SPI_GATEWAY_H
#define QUORVEL_TOOL_SPI_GATEWAY_H

#include "Gateway.h"
#include "QuorvelClientSPI.h"

#include <string>
#include <string_view>

/// The SPI client with transfers that are whole.
class CSpiGateway : public CGateway<CQuorvelClientSPI>
{
  public:
    /// The most bytes that an answer holds.
    static constexpr std::size_t MAX_TRANSFER = 65527;

    explicit CSpiGateway(CTool& oTool) : CGateway(oTool) {}

    /**
     * One frame on the bus.
     * @param strOperation what it is for
     * @param strWrite     the bytes to write
     * @param strRead      as long as what is to be read, from the first clock on; receives it
     * @return 0, or the exit status of a failure, which was reported
     */
    int Transfer(std::string_view strOperation, std::string_view strWrite, std::string& strRead)
    {
        const int nRC = DataReq(strWrite.data(), static_cast<unsigned short>(strWrite.size()), strRead.data(),
                                static_cast<unsigned short>(strRead.size()));
        if (nRC == 0 && GetAnswered() >= strRead.size())
            return eStatusDone; // without making a text of the operation
        return Check(std::string(strOperation), nRC, strRead.size());
    }
};

#endif
