#include "CanBus.h"

#include <algorithm>
#include <utility>

namespace
{

bool Matches(unsigned nBitRate, unsigned nOther)
{
    return nBitRate == 0 || nOther == 0 || nBitRate == nOther;
}

} // namespace

CCanBus::CCanBus() : m_oThread(&CCanBus::Run, this) {}

CCanBus::~CCanBus()
{
    {
        const auto oLock = Lock();
        m_bEnd = true;
    }
    m_oTimersChanged.notify_one();
    m_oThread.join();
}

void CCanBus::FailNext(unsigned char nResult, unsigned nCount)
{
    const auto oLock = Lock();
    m_nFailure = nResult;
    m_nFailures = nCount;
}

void CCanBus::Hold(bool bOn)
{
    const auto oLock = Lock();
    m_bHeld = bOn;
    Deliver();
}

unsigned long long CCanBus::GetFrameCount() const
{
    const auto oLock = Lock();
    return m_nFrames;
}

void CCanBus::Attach(CCanStation& oStation)
{
    m_apStations.push_back(&oStation);
}

void CCanBus::Detach(CCanStation& oStation)
{
    SetRole(oStation, CCanStation::ERole::eOff, 0);
    std::erase(m_apStations, &oStation);
}

void CCanBus::SetRole(CCanStation& oStation, CCanStation::ERole eRole, unsigned nBitRate)
{
    oStation.m_eRole = eRole;
    oStation.m_nBitRate = nBitRate;
    if (eRole == CCanStation::ERole::eActive)
        return;
    std::erase_if(m_aoQueue, [&](const SQueued& oQueued) {
        if (oQueued.pSender != &oStation)
            return false;
        oQueued.pTransmission->oResult = eCanTransmitError;
        return true;
    });
}

void CCanBus::SetTimer(CCanStation& oStation, std::optional<TSimTime> oTime)
{
    oStation.m_oTimer = oTime;
    m_oTimersChanged.notify_one();
}

void CCanBus::Transmit(CCanStation& oSender, const std::shared_ptr<SCanTransmission>& pTransmission)
{
    if (oSender.m_eRole != CCanStation::ERole::eActive) {
        pTransmission->oResult = eCanTransmitError;
        return;
    }
    if (m_bHeld && std::ranges::count(m_aoQueue, &oSender, &SQueued::pSender) >=
                       static_cast<std::ptrdiff_t>(nMaxWaiting)) {
        pTransmission->oResult = eCanOverflow;
        return;
    }
    m_aoQueue.push_back({&oSender, pTransmission});
    Deliver();
}

void CCanBus::Deliver()
{
    // Stations answer while they are given a frame; their answers follow when all have it.
    if (m_bHeld || m_bDelivering)
        return;
    m_bDelivering = true;
    while (!m_aoQueue.empty()) {
        const SQueued oQueued = std::move(m_aoQueue.front());
        m_aoQueue.pop_front();
        SCanTransmission& oTransmission = *oQueued.pTransmission;
        oTransmission.oTime = TSimClock::now();
        oTransmission.oResult = Judge(*oQueued.pSender);
        if (oTransmission.oResult != eCanSent)
            continue;
        m_nFrames++;
        oQueued.pSender->OnSent(oTransmission);
        for (CCanStation* pStation : m_apStations) {
            if (pStation != oQueued.pSender && pStation->m_eRole != CCanStation::ERole::eOff &&
                Matches(pStation->m_nBitRate, oQueued.pSender->m_nBitRate))
                pStation->OnFrame(oTransmission);
        }
    }
    m_bDelivering = false;
}

unsigned char CCanBus::Judge(const CCanStation& oSender)
{
    if (m_nFailures > 0) {
        m_nFailures--;
        return m_nFailure;
    }
    unsigned char nResult = eCanNoAcknowledge;
    for (const CCanStation* pStation : m_apStations) {
        if (pStation == &oSender || pStation->m_eRole != CCanStation::ERole::eActive)
            continue;
        if (!Matches(pStation->m_nBitRate, oSender.m_nBitRate))
            return eCanTransmitError;
        nResult = eCanSent;
    }
    return nResult;
}

void CCanBus::Run()
{
    auto oLock = Lock();
    while (!m_bEnd) {
        std::optional<TSimTime> oNext;
        for (const CCanStation* pStation : m_apStations) {
            if (pStation->m_oTimer && (!oNext || *pStation->m_oTimer < *oNext))
                oNext = pStation->m_oTimer;
        }
        const auto oNow = TSimClock::now();
        if (!oNext) {
            m_oTimersChanged.wait(oLock);
        } else if (*oNext > oNow) {
            m_oTimersChanged.wait_until(oLock, *oNext);
        } else {
            for (CCanStation* pStation : m_apStations) {
                if (pStation->m_oTimer && *pStation->m_oTimer <= oNow) {
                    pStation->m_oTimer.reset();
                    pStation->OnTimer();
                }
            }
        }
    }
}
