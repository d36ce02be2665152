/**
 * @file QuorvelClientTestSystemRelay.h
 * @brief The client of a test system's relay box.
 */
#ifndef QUORVEL_CLIENT_TEST_SYSTEM_RELAY_H
#define QUORVEL_CLIENT_TEST_SYSTEM_RELAY_H

#include "QuorvelClient.h"

/**
 * The relay box of a test system (kind 17, TCP port 5016). Threads and results as CQuorvelClient.
 *
 * Values are 16-bit numbers whose meaning and number are the box's.
 */
class QUORVEL_API CQuorvelClientTestSystemRelay : public CQuorvelClient
{
  public:
    /**
     * A client that is not connected yet.
     * @param nTimeout default time-out in milliseconds, see CQuorvelClient
     */
    explicit CQuorvelClientTestSystemRelay(int nTimeout);
    ~CQuorvelClientTestSystemRelay() override;

    /**
     * As CQuorvelClient::Open.
     * @return 0
     */
    int Open() override;

    /**
     * Switches a relay.
     * @param nRelay relay number
     * @param bOn    true to switch it on
     * @return result code
     */
    int SetRelay(unsigned char nRelay, bool bOn);

    /**
     * Sets the supplies of the box.
     * @param pValues the values; null sends none
     * @param nCount  how many
     * @return result code
     */
    int SetPower(unsigned short* pValues, unsigned char nCount);

    /**
     * Reads the supplies of the box.
     * @param pValues receives the values, in order, as many as come; the others are left alone, and all of
     * them on failure. With null none is stored.
     * @param nCount  how many fit
     * @return result code
     */
    int GetPower(unsigned short* pValues, unsigned char nCount);
};

#endif
