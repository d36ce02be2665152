/**
 * @file QuorvelClientTestSystemIO.h
 * @brief The client of a test system's I/O box.
 */
#ifndef QUORVEL_CLIENT_TEST_SYSTEM_IO_H
#define QUORVEL_CLIENT_TEST_SYSTEM_IO_H

#include "QuorvelClient.h"

/**
 * The I/O box of a test system (kind 11, TCP port 5010). Threads and results as CQuorvelClient.
 *
 * Values are 16-bit numbers whose meaning and number are the box's.
 */
class QUORVEL_API CQuorvelClientTestSystemIO : public CQuorvelClient
{
  public:
    /**
     * A client that is not connected yet.
     * @param nTimeout default time-out in milliseconds, see CQuorvelClient
     */
    explicit CQuorvelClientTestSystemIO(int nTimeout);
    ~CQuorvelClientTestSystemIO() override;

    /**
     * As CQuorvelClient::Open.
     * @return 0
     */
    int Open() override;

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

    /**
     * Sets the output values.
     * @param pValues the values; null sends none
     * @param nCount  how many
     * @return result code
     */
    int SetValue(unsigned short* pValues, unsigned char nCount);

    /**
     * Reads the values.
     * @param pValues receives the values, in order, as many as come; the others are left alone, and all of
     * them on failure. With null none is stored.
     * @param nCount  how many fit
     * @return result code
     */
    int GetValue(unsigned short* pValues, unsigned char nCount);
};

#endif
