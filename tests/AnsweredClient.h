// A client whose every request is confirmed at once, without any connection.
#ifndef QUORVEL_ANSWERED_CLIENT_H
#define QUORVEL_ANSWERED_CLIENT_H

#include "QuorvelClient.h"
#include "TestPeer.h"

inline std::string g_strConfirmation; // the data of every confirmation

inline void Receive(CQuorvelClient& oClient, unsigned int nCode, int nID, const std::string& strData)
{
    const std::string strBytes = Telegram(nCode, nID, strData);
    oClient.DataInd(strBytes.data(), static_cast<unsigned short>(strBytes.size()));
}

template<class TClient>
class CAnswered : public TClient
{
  public:
    using TClient::SendMsg;
    using TClient::TClient;
    ~CAnswered() override { this->StopReception(); }

    int SendMsg(const CQuorvelMsg& oMsg) override
    {
        Receive(*this, oMsg.GetCmdCode() | 0x8000U, oMsg.GetMsgID(), g_strConfirmation);
        return 0;
    }
};

#endif
