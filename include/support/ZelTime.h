/**
 * @file ZelTime.h
 * @brief Points in time, differences between them, and deadlines.
 */
#ifndef QUORVEL_ZEL_TIME_H
#define QUORVEL_ZEL_TIME_H

#include "../QuorvelExport.h"

/** A signed length of time with a resolution of one microsecond. */
class QUORVEL_API CZelTimeDiff
{
  public:
    /** No time at all. */
    CZelTimeDiff() = default;

    /**
     * The sum of all parts; each may be negative or exceed its usual range. Nanoseconds are cut to whole
     * microseconds.
     */
    CZelTimeDiff(int nDays, int nHours, int nMinutes, int nSeconds, int nMilliSeconds, int nMicroSeconds,
                 int nNanoSeconds);

    /**
     * The difference as a number of microseconds.
     * @param nMicroSeconds may be negative
     * @return the difference
     */
    static CZelTimeDiff FromMicroSeconds(long long nMicroSeconds);

    /** @return whole milliseconds, cut towards zero */
    long long GetTotalMilliSeconds() const { return m_nMicroSeconds / 1000; }

    /** @return microseconds */
    long long GetTotalMicroSeconds() const { return m_nMicroSeconds; }

    /** @return true when this difference is the smaller one */
    bool operator<(const CZelTimeDiff& oOther) const { return m_nMicroSeconds < oOther.m_nMicroSeconds; }

    /** @return true when both are the same length */
    bool operator==(const CZelTimeDiff& oOther) const { return m_nMicroSeconds == oOther.m_nMicroSeconds; }

  private:
    long long m_nMicroSeconds = 0;
};

/** A point in time: microseconds since 1970-01-01 00:00 UTC. */
class QUORVEL_API CZelUTCTime
{
  public:
    /** 1970-01-01 00:00. */
    CZelUTCTime() = default;

    /**
     * The time that many seconds and microseconds after 1970-01-01 00:00.
     * @param nSeconds      seconds
     * @param nMicroSeconds microseconds, added
     */
    CZelUTCTime(long long nSeconds, long long nMicroSeconds);

    /** @return the system's current time */
    static CZelUTCTime CurrentUTCTime();

    /** Adds the sum of the seven parts (nanoseconds are cut to whole microseconds). */
    void AddTime(unsigned int nDays, unsigned int nHours, unsigned int nMinutes, unsigned int nSeconds,
                 unsigned int nMilliSeconds, unsigned int nMicroSeconds, unsigned int nNanoSeconds);

    /** Subtracts the sum of the seven parts (nanoseconds are cut to whole microseconds). */
    void SubTime(unsigned int nDays, unsigned int nHours, unsigned int nMinutes, unsigned int nSeconds,
                 unsigned int nMilliSeconds, unsigned int nMicroSeconds, unsigned int nNanoSeconds);

    /** @return whole seconds since 1970-01-01 00:00, rounded down */
    long long GetSeconds() const;

    /** @return the microseconds beyond the whole second, 0 to 999999 */
    int GetMicroSeconds() const;

    /** Moves the time forward. @return this time */
    CZelUTCTime& operator+=(const CZelTimeDiff& oDiff);

    /** Moves the time back. @return this time */
    CZelUTCTime& operator-=(const CZelTimeDiff& oDiff);

    /** @return the time between the two, negative when this one is earlier */
    CZelTimeDiff operator-(const CZelUTCTime& oOther) const;

    /** @return true when this time is earlier */
    bool operator<(const CZelUTCTime& oOther) const { return m_nMicroSeconds < oOther.m_nMicroSeconds; }

    /** @return true when both are the same time */
    bool operator==(const CZelUTCTime& oOther) const { return m_nMicroSeconds == oOther.m_nMicroSeconds; }

  protected:
    long long m_nMicroSeconds = 0; ///< since 1970-01-01 00:00
};

/** A point in time on the local clock: microseconds since 1970-01-01 00:00 local time. */
class QUORVEL_API CZelLocalTime : public CZelUTCTime
{
  public:
    using CZelUTCTime::CZelUTCTime;

    /** 1970-01-01 00:00 local time. */
    CZelLocalTime() = default;

    /**
     * Midnight of a day.
     * @param pDate "dd.mm.yyyy"; a text that is no date (or null) gives 1970-01-01
     */
    explicit CZelLocalTime(const char* pDate);

    /** @return the current local time */
    static CZelLocalTime CurrentLocalTime();
};

/** A moment on the steady clock up to which something may take. Setting the system clock does not move it. */
class QUORVEL_API CZelDeadline
{
  public:
    /**
     * A moment from now.
     * @param nTimeout milliseconds; 0xFFFFFFFF is never
     */
    explicit CZelDeadline(unsigned int nTimeout);

    /**
     * The time left.
     * @return milliseconds, rounded up; 0 when the deadline has passed; 0xFFFFFFFF when it never does
     */
    unsigned int GetRemaining() const;

    /** @return true when the deadline has passed */
    bool IsOver() const { return GetRemaining() == 0; }

  private:
    long long m_nMicroSeconds; // on the steady clock
};

#endif
