#include "SpiSequence.h"

#include "SimTelegram.h"

#include <utility>

namespace
{

constexpr std::size_t nMaxDepth = 8;

/// Takes operands off the bytes; says whether they were all there.
class COperands
{
  public:
    explicit COperands(const std::string& strBytes) : m_strBytes(strBytes) {}

    bool IsAtEnd() const { return m_nPos == m_strBytes.size(); }
    unsigned char TakeOpCode() { return static_cast<unsigned char>(m_strBytes[m_nPos++]); }
    bool Take(std::size_t nLen, std::string& strTaken)
    {
        if (m_strBytes.size() - m_nPos < nLen)
            return false;
        strTaken = m_strBytes.substr(m_nPos, nLen);
        m_nPos += nLen;
        return true;
    }
    bool Take16(unsigned& nValue)
    {
        std::string strTaken;
        if (!Take(2, strTaken))
            return false;
        nValue = SimGet16(strTaken, 0);
        return true;
    }
    bool Take32(unsigned& nValue)
    {
        std::string strTaken;
        if (!Take(4, strTaken))
            return false;
        nValue = SimGet32(strTaken, 0);
        return true;
    }

  private:
    const std::string& m_strBytes;
    std::size_t m_nPos = 0;
};

} // namespace

unsigned char CSpiSequence::Parse(const std::string& strBytes)
{
    if (strBytes.empty())
        return eInconsistent;
    COperands oOperands(strBytes);
    std::vector<std::size_t> anLoops;
    while (!oOperands.IsAtEnd()) {
        SOperation oOperation;
        oOperation.eOpCode = static_cast<EOpCode>(oOperands.TakeOpCode());
        unsigned nCount = 0;
        switch (oOperation.eOpCode) {
        case eEnd:
            return anLoops.empty() ? 0 : eInconsistent;
        case eTransfer:
        case eWrite:
        case eWriteRead:
            if (!oOperands.Take16(nCount) || !oOperands.Take(nCount, oOperation.strWrite))
                return eInconsistent;
            if (oOperation.eOpCode == eTransfer) {
                oOperation.nCollect = nCount;
            } else if (oOperation.eOpCode == eWriteRead) {
                if (!oOperands.Take16(nCount))
                    return eInconsistent;
                oOperation.nCollect = nCount;
                oOperation.strWrite.append(nCount, '\0');
            }
            if (oOperation.strWrite.empty())
                return eInconsistent;
            break;
        case eDelay:
            if (!oOperands.Take16(oOperation.nValue))
                return eInconsistent;
            break;
        case eDigitalWrite:
            if (!oOperands.Take32(oOperation.nValue))
                return eInconsistent;
            break;
        case eDigitalRead:
            break;
        case eLoop:
            if (!oOperands.Take16(oOperation.nValue) || oOperation.nValue == 0 || anLoops.size() == nMaxDepth)
                return eInconsistent;
            anLoops.push_back(m_aoOperations.size());
            break;
        case eLoopEnd:
            if (anLoops.empty())
                return eInconsistent;
            oOperation.nLoopHead = anLoops.back();
            anLoops.pop_back();
            break;
        default:
            return eUnknownOpCode;
        }
        m_aoOperations.push_back(std::move(oOperation));
    }
    return anLoops.empty() ? 0 : eInconsistent;
}
