/**
 * @file QuorvelClientTestSystemPWR.h
 * @brief The client of a test system's power-supply box.
 */
#ifndef QUORVEL_CLIENT_TEST_SYSTEM_PWR_H
#define QUORVEL_CLIENT_TEST_SYSTEM_PWR_H

#include "QuorvelClient.h"

/**
 * The power-supply box of a test system (kind 12, TCP port 5011). Threads and results as CQuorvelClient.
 *
 * Values are 16-bit numbers whose meaning and number are the box's.
 */
class QUORVEL_API CQuorvelClientTestSystemPWR : public CQuorvelClient
{
  public:
    /**
     * A client that is not connected yet.
     * @param nTimeout default time-out in milliseconds, see CQuorvelClient
     */
    explicit CQuorvelClientTestSystemPWR(int nTimeout);
    ~CQuorvelClientTestSystemPWR() override;

    /**
     * As CQuorvelClient::Open.
     * @return 0
     */
    int Open() override;

    /**
     * Sets the supplies.
     * @param pValues the values; null sends none
     * @param nCount  how many
     * @return result code
     */
    int SetValue(unsigned short* pValues, unsigned char nCount);

    /**
     * Reads the supplies.
     * @param pValues receives the values, in order, as many as come; the others are left alone, and all of
     * them on failure. With null none is stored.
     * @param nCount  how many fit
     * @return result code
     */
    int GetValue(unsigned short* pValues, unsigned char nCount);
};

#endif
