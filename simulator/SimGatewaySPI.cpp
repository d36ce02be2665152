#include "SimGatewaySPI.h"

#include "QuorvelErrorMsg.h"
#include "SpiSequence.h"

#include <utility>

namespace
{

enum : unsigned char { eTransfer = 0x03, eSetGlobals = 0x07, eGetGlobals = 0x08, eSequence = 0x14 };
enum : unsigned char { eInconsistentData = 0x20, eSendError = 0x21, eSequenceTimeout = 0x31 };

constexpr unsigned nMinBaudrate = 1000;
constexpr unsigned nMaxBaudrate = 50000000;
constexpr unsigned nMaxSignalLevel = 3;
constexpr unsigned nMaxAuxVoltage = 2;
constexpr unsigned nMaxClockMode = 3;

// What every operation of a sequence takes, besides its bits on the bus.
constexpr auto nOperationTime = std::chrono::microseconds(10);
// So many operations run at a stretch before other requests get their turn.
constexpr unsigned nStretch = 256;

} // namespace

/// A sequence under way.
struct CSimGatewaySPI::SRun {
    CSpiSequence oSequence;
    std::vector<unsigned> anLoops; ///< rounds left, innermost last
    std::size_t nNext = 0;
    std::string strCollected;
    TSimTime oStart = TSimClock::now();
    std::chrono::nanoseconds nElapsed{0};
    std::chrono::nanoseconds nLimit{0};
};

CSimGatewaySPI::CSimGatewaySPI() : CSimGateway(eDeviceSPI, "SPI") {}

CSimGatewaySPI::~CSimGatewaySPI()
{
    Stop();
}

SSimAnswer CSimGatewaySPI::Execute(const SSimRequest& oRequest)
{
    SSimAnswer oAnswer;
    switch (oRequest.nCommand) {
    case eTransfer:
        oAnswer.nResult = eInconsistentData;
        if (oRequest.strData.size() <= nMaxAnswer)
            oAnswer.nResult = Transfer(oRequest.strData, oAnswer.strData);
        return oAnswer;
    case eSetGlobals:
        oAnswer.nResult = SetGlobals(oRequest.strData);
        return oAnswer;
    case eGetGlobals:
        oAnswer.strData = GetGlobals();
        return oAnswer;
    case eSequence:
        return StartSequence(oRequest.strData);
    default:
        return CSimGateway::Execute(oRequest);
    }
}

void CSimGatewaySPI::PowerOn()
{
    CSimGateway::PowerOn();
    m_nBaudrate = 1000000;
    m_nSignalLevel = 2;
    m_nAuxVoltage = 1;
    m_nClockMode = 0;
    m_oFlash.PowerCycle();
}

unsigned char CSimGatewaySPI::SetGlobals(const std::string& strData)
{
    if (strData.size() < 7)
        return eSimResultFailed;
    const unsigned nBaudrate = SimGet32(strData, 0);
    const auto nSignalLevel = static_cast<unsigned char>(strData[4]);
    const auto nAuxVoltage = static_cast<unsigned char>(strData[5]);
    const auto nClockMode = static_cast<unsigned char>(strData[6]);
    if (strData.size() > 7 || nBaudrate < nMinBaudrate || nBaudrate > nMaxBaudrate ||
        nSignalLevel > nMaxSignalLevel || nAuxVoltage > nMaxAuxVoltage || nClockMode > nMaxClockMode)
        return eInconsistentData;
    m_nBaudrate = nBaudrate;
    m_nSignalLevel = nSignalLevel;
    m_nAuxVoltage = nAuxVoltage;
    m_nClockMode = nClockMode;
    if (m_nAuxVoltage == 0)
        m_oFlash.PowerCycle();
    return eSimResultOk;
}

std::string CSimGatewaySPI::GetGlobals() const
{
    std::string strData;
    SimPut32(strData, m_nBaudrate);
    strData += static_cast<char>(m_nSignalLevel);
    strData += static_cast<char>(m_nAuxVoltage);
    strData += static_cast<char>(m_nClockMode);
    return strData;
}

unsigned char CSimGatewaySPI::Transfer(const std::string& strWrite, std::string& strRead)
{
    if (strWrite.empty())
        return eInconsistentData;
    if (m_nAuxVoltage == 0)
        return eSendError;
    if (m_nClockMode == 0 || m_nClockMode == 3)
        strRead = m_oFlash.Transfer(strWrite);
    else
        strRead.assign(strWrite.size(), '\xFF');
    return eSimResultOk;
}

SSimAnswer CSimGatewaySPI::StartSequence(const std::string& strBytes)
{
    const auto pRun = std::make_shared<SRun>();
    const unsigned char nResult = pRun->oSequence.Parse(strBytes);
    if (nResult != eSimResultOk)
        return SSimAnswer(nResult);
    pRun->nLimit = std::chrono::milliseconds(m_nSequenceLimitMs);
    return RunSequence(pRun);
}

/// Runs on until the sequence waits, has had its stretch, or is done.
SSimAnswer CSimGatewaySPI::RunSequence(const std::shared_ptr<SRun>& pRun)
{
    SSimAnswer oAnswer;
    const auto& aoOperations = pRun->oSequence.GetOperations();
    const auto nBefore = pRun->nElapsed;
    bool bWaits = false;
    for (unsigned i = 0; i < nStretch && pRun->nNext < aoOperations.size() && !bWaits; i++) {
        bWaits = aoOperations[pRun->nNext].eOpCode == CSpiSequence::eDelay;
        oAnswer.nResult = Step(*pRun);
        if (oAnswer.nResult == eSequenceTimeout) {
            oAnswer.oDue = pRun->oStart + pRun->nLimit;
            oAnswer.fnContinue = [] { return SSimAnswer(eSequenceTimeout); };
            return oAnswer;
        }
        if (oAnswer.nResult != eSimResultOk)
            return oAnswer;
    }
    if (pRun->nNext == aoOperations.size() && pRun->nElapsed == nBefore) {
        oAnswer.strData = std::move(pRun->strCollected);
        return oAnswer;
    }
    oAnswer.oDue = pRun->oStart + pRun->nElapsed;
    oAnswer.fnContinue = [this, pRun] { return RunSequence(pRun); };
    return oAnswer;
}

unsigned char CSimGatewaySPI::Step(SRun& oRun)
{
    const auto& oOperation = oRun.oSequence.GetOperations()[oRun.nNext];
    oRun.nElapsed += nOperationTime;
    if (oOperation.eOpCode == CSpiSequence::eDelay)
        oRun.nElapsed += std::chrono::milliseconds(oOperation.nValue);
    const auto nBits = static_cast<long long>(oOperation.strWrite.size()) * 8;
    oRun.nElapsed += std::chrono::nanoseconds(nBits * 1000000000 / m_nBaudrate);
    if (oRun.nElapsed > oRun.nLimit)
        return eSequenceTimeout;

    oRun.nNext++;
    std::string strRead;
    switch (oOperation.eOpCode) {
    case CSpiSequence::eTransfer:
    case CSpiSequence::eWrite:
    case CSpiSequence::eWriteRead:
        if (const unsigned char nResult = Transfer(oOperation.strWrite, strRead); nResult != eSimResultOk)
            return nResult;
        oRun.strCollected.append(strRead, strRead.size() - oOperation.nCollect);
        break;
    case CSpiSequence::eDigitalWrite:
        m_nOutputs = oOperation.nValue;
        break;
    case CSpiSequence::eDigitalRead:
        SimPut32(oRun.strCollected, Inputs());
        break;
    case CSpiSequence::eLoop:
        oRun.anLoops.push_back(oOperation.nValue);
        break;
    case CSpiSequence::eLoopEnd:
        if (--oRun.anLoops.back() != 0)
            oRun.nNext = oOperation.nLoopHead + 1;
        else
            oRun.anLoops.pop_back();
        break;
    case CSpiSequence::eDelay:
    case CSpiSequence::eEnd:
        break;
    }
    return oRun.strCollected.size() <= nMaxAnswer ? 0 : eInconsistentData;
}
