#include "Command.h"

#include "Trace.h"

#include <locale>
#include <new>
#include <utility>

CCommand::CCommand(CQuorvelClient& oClient, const char* pUnit, unsigned char nLevel, const char* pText,
                   unsigned int nLine)
    : m_oClient(oClient), m_pUnit(pUnit), m_nLine(nLine), m_nLevel(nLevel)
{
    if (!CTraceServer::IsEnabled(nLevel))
        return;
    try {
        m_oText.emplace();
        m_oText->imbue(std::locale::classic()); // whatever the application has set
        *m_oText << pText << oClient.GetConnection().GetPartnerAddress();
    } catch (const std::bad_alloc&) { // without the trace, then
        m_oText.reset();
    }
}

CQuorvelMsg CCommand::Request(unsigned short nCmdCode, CPieces astrData)
{
    if (m_oText)
        Trace(
            m_nLevel, m_pUnit, [this] { return m_oText->str(); }, m_nLine);
    std::size_t nLen = 0;
    for (const std::string_view strPiece : astrData)
        nLen += strPiece.size();
    std::string strData;
    strData.reserve(nLen);
    for (const std::string_view strPiece : astrData)
        strData += strPiece;
    return {nCmdCode, m_oClient.TakeMsgID(), std::move(strData)};
}

int CCommand::Exchange(unsigned short nCmdCode, CPieces astrData, const unsigned int* pTimeout)
{
    return Guarded([&] {
        CQuorvelMsg* pCnf = nullptr;
        const int nRC = m_oClient.SendMsg(Request(nCmdCode, astrData), pCnf, pTimeout);
        return Take(nRC, pCnf);
    });
}

int CCommand::Collect(unsigned short nCmdCode, short nID, unsigned int nLine)
{
    return Guarded([&] {
        CQuorvelMsg* const pCnf = m_oClient.CollectMsg(nID, nullptr);
        return Take(CQuorvelClient::CheckCnf(pCnf, nCmdCode, m_pUnit, nLine), pCnf);
    });
}

int CCommand::Take(int nRC, CQuorvelMsg* pCnf)
{
    m_pCnf.reset(pCnf);
    m_bConfirmed = nRC == 0 && pCnf != nullptr;
    return m_bConfirmed ? m_oClient.GetCnfRetCode(*pCnf) : nRC;
}

int CCommand::Send(unsigned short nCmdCode, CPieces astrData, short& nID)
{
    return Guarded([&] {
        const CQuorvelMsg oReq = Request(nCmdCode, astrData);
        nID = oReq.GetMsgID();
        return m_oClient.SendMsg(oReq);
    });
}

CDataReader CCommand::Data() const
{
    return CDataReader(m_pCnf ? m_pCnf->GetData() : std::string_view());
}
