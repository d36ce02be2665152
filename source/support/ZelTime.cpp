#include "support/ZelTime.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

namespace
{

constexpr long long MICRO_PER_SECOND = 1000000;
constexpr long long NEVER = -1;

template<class T>
long long Sum(T nDays, T nHours, T nMinutes, T nSeconds, T nMilliSeconds, T nMicroSeconds, T nNanoSeconds)
{
    const long long nSum = ((static_cast<long long>(nDays) * 24 + nHours) * 60 + nMinutes) * 60 + nSeconds;
    return (nSum * 1000 + nMilliSeconds) * 1000 + nMicroSeconds + nNanoSeconds / 1000;
}

long long Now(clockid_t nClock)
{
    timespec oTime{};
    clock_gettime(nClock, &oTime);
    return oTime.tv_sec * MICRO_PER_SECOND + oTime.tv_nsec / 1000;
}

} // namespace

CZelTimeDiff::CZelTimeDiff(int nDays, int nHours, int nMinutes, int nSeconds, int nMilliSeconds,
                           int nMicroSeconds, int nNanoSeconds)
    : m_nMicroSeconds(Sum(nDays, nHours, nMinutes, nSeconds, nMilliSeconds, nMicroSeconds, nNanoSeconds))
{
}

CZelTimeDiff CZelTimeDiff::FromMicroSeconds(long long nMicroSeconds)
{
    CZelTimeDiff oDiff;
    oDiff.m_nMicroSeconds = nMicroSeconds;
    return oDiff;
}

CZelUTCTime::CZelUTCTime(long long nSeconds, long long nMicroSeconds)
    : m_nMicroSeconds(nSeconds * MICRO_PER_SECOND + nMicroSeconds)
{
}

CZelUTCTime CZelUTCTime::CurrentUTCTime()
{
    return {0, Now(CLOCK_REALTIME)};
}

void CZelUTCTime::AddTime(unsigned int nDays, unsigned int nHours, unsigned int nMinutes,
                          unsigned int nSeconds, unsigned int nMilliSeconds, unsigned int nMicroSeconds,
                          unsigned int nNanoSeconds)
{
    m_nMicroSeconds += Sum(nDays, nHours, nMinutes, nSeconds, nMilliSeconds, nMicroSeconds, nNanoSeconds);
}

void CZelUTCTime::SubTime(unsigned int nDays, unsigned int nHours, unsigned int nMinutes,
                          unsigned int nSeconds, unsigned int nMilliSeconds, unsigned int nMicroSeconds,
                          unsigned int nNanoSeconds)
{
    m_nMicroSeconds -= Sum(nDays, nHours, nMinutes, nSeconds, nMilliSeconds, nMicroSeconds, nNanoSeconds);
}

long long CZelUTCTime::GetSeconds() const
{
    return (m_nMicroSeconds - GetMicroSeconds()) / MICRO_PER_SECOND;
}

int CZelUTCTime::GetMicroSeconds() const
{
    return static_cast<int>((m_nMicroSeconds % MICRO_PER_SECOND + MICRO_PER_SECOND) % MICRO_PER_SECOND);
}

CZelUTCTime& CZelUTCTime::operator+=(const CZelTimeDiff& oDiff)
{
    m_nMicroSeconds += oDiff.GetTotalMicroSeconds();
    return *this;
}

CZelUTCTime& CZelUTCTime::operator-=(const CZelTimeDiff& oDiff)
{
    m_nMicroSeconds -= oDiff.GetTotalMicroSeconds();
    return *this;
}

CZelTimeDiff CZelUTCTime::operator-(const CZelUTCTime& oOther) const
{
    return CZelTimeDiff::FromMicroSeconds(m_nMicroSeconds - oOther.m_nMicroSeconds);
}

CZelLocalTime::CZelLocalTime(const char* pDate)
{
    tm oTime{};
    char cRest = 0;
    if (pDate == nullptr || std::sscanf(pDate, "%2d.%2d.%4d%c", &oTime.tm_mday, &oTime.tm_mon, &oTime.tm_year,
                                        &cRest) != 3) // NOLINT(cert-err34-c): three fields or none
        return;
    const tm oAsked = oTime;
    oTime.tm_mon -= 1;
    oTime.tm_year -= 1900;
    const time_t nSeconds = timegm(&oTime);
    // timegm moves a day that does not exist to one that does.
    if (oTime.tm_mday == oAsked.tm_mday && oTime.tm_mon == oAsked.tm_mon - 1)
        m_nMicroSeconds = nSeconds * MICRO_PER_SECOND;
}

CZelLocalTime CZelLocalTime::CurrentLocalTime()
{
    const long long nNow = Now(CLOCK_REALTIME);
    const time_t nSeconds = nNow / MICRO_PER_SECOND;
    tm oTime{};
    localtime_r(&nSeconds, &oTime);
    return {oTime.tm_gmtoff, nNow};
}

CZelDeadline::CZelDeadline(unsigned int nTimeout)
    : m_nMicroSeconds(nTimeout == 0xFFFFFFFFU ? NEVER : Now(CLOCK_MONOTONIC) + nTimeout * 1000LL)
{
}

unsigned int CZelDeadline::GetRemaining() const
{
    if (m_nMicroSeconds == NEVER)
        return 0xFFFFFFFFU;
    const long long nRemaining = m_nMicroSeconds - Now(CLOCK_MONOTONIC);
    return nRemaining <= 0 ? 0 : static_cast<unsigned int>((nRemaining + 999) / 1000);
}
