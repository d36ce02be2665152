/**
 * @file QuorvelClientDIO.h
 * @brief The client of the digital I/O gateway.
 */
#ifndef QUORVEL_CLIENT_DIO_H
#define QUORVEL_CLIENT_DIO_H

#include "QuorvelClient.h"

/** The digital I/O gateway (kind 5, TCP port 5004). Threads and results as CQuorvelClient. */
class QUORVEL_API CQuorvelClientDIO : public CQuorvelClient
{
  public:
    /**
     * A client that is not connected yet.
     * @param nTimeout default time-out in milliseconds, see CQuorvelClient
     */
    explicit CQuorvelClientDIO(int nTimeout);
    ~CQuorvelClientDIO() override;

    /**
     * Reads the lines; see BaseReadDigital.
     * @param nInputs  receives the input bits
     * @param nOutputs receives the output bits
     * @return result code
     */
    int Read(unsigned int& nInputs, unsigned int& nOutputs);

    /**
     * Sets the outputs; see BaseWriteDigital.
     * @param nOutputs the output bits
     * @return result code
     */
    int Write(unsigned int nOutputs);
};

#endif
