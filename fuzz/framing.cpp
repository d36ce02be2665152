// A stream of any bytes from a gateway, over a real connection. The first byte tells in which pieces it is sent. What
// the client is handed must be what the two length bytes say, whatever the pieces.

#include "../tests/TestPeer.h"
#include "FuzzFile.h"
#include "support/ZelEvent.h"
#include "support/ZelIPConnection.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace
{

class CReceiver : public CZelIPConnection
{
  public:
    ~CReceiver() override { DisconnectReq(0xFFFFFFFFU); }

    void ConnectInd(bool bConnected) override
    {
        if (!bConnected)
            m_oEventLost.Signal();
    }
    void DataInd(const char* pData, unsigned short nLen) override
    {
        m_astrTelegrams.emplace_back(pData, nLen);
    }

    CZelEvent m_oEventLost;
    std::vector<std::string> m_astrTelegrams; // of the receive thread, until the connection is lost
};

std::vector<std::string> Cut(const std::string& strStream)
{
    std::vector<std::string> astrTelegrams;
    for (std::size_t nPos = 0; nPos + 2 <= strStream.size();) {
        const std::size_t nLen = 2U + static_cast<unsigned char>(strStream[nPos]) +
                                 256U * static_cast<unsigned char>(strStream[nPos + 1]);
        if (nPos + nLen > strStream.size())
            break;
        if (nLen <= 65535)
            astrTelegrams.push_back(strStream.substr(nPos, nLen));
        nPos += nLen;
    }
    return astrTelegrams;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pBytes, std::size_t nCount)
{
    static CTestPeer s_oGateway;
    if (nCount == 0)
        return 0;
    const std::string strStream(reinterpret_cast<const char*>(pBytes) + 1, nCount - 1);
    const std::size_t nPiece = pBytes[0] == 0 ? strStream.size() : pBytes[0];
    CReceiver oReceiver;
    Require(oReceiver.ConnectReq("127.0.0.1", s_oGateway.GetPort(), 10000, 3, CZelIPBase::eProtocolTCP, "",
                                 true) == CZelIPBase::eSuccess);
    for (std::size_t nPos = 0; nPos < strStream.size(); nPos += nPiece)
        s_oGateway.Send(strStream.substr(nPos, nPiece));
    s_oGateway.Close();
    Require(s_oGateway.WaitForEndOfClient() && oReceiver.m_oEventLost.Wait(10000));
    Require(oReceiver.m_astrTelegrams == Cut(strStream));
    return 0;
}
