/**
 * @file QuorvelClientAD.h
 * @brief The client of the analog/digital gateway.
 */
#ifndef QUORVEL_CLIENT_AD_H
#define QUORVEL_CLIENT_AD_H

#include "QuorvelClient.h"

#include <vector>

/**
 * The analog/digital gateway (kind 7, TCP port 5006). Threads and results as CQuorvelClient.
 *
 * Single analog values are read and written by the inherited ReadAnalog and WriteAnalog.
 */
class QUORVEL_API CQuorvelClientAD : public CQuorvelClient
{
  public:
    /**
     * A client that is not connected yet.
     * @param nTimeout default time-out in milliseconds, see CQuorvelClient
     */
    explicit CQuorvelClientAD(int nTimeout);
    ~CQuorvelClientAD() override;

    /**
     * Reads the digital lines; see BaseReadDigital.
     * @param nInputs  receives the input bits
     * @param nOutputs receives the output bits
     * @return result code
     */
    int ReadDigital(unsigned int& nInputs, unsigned int& nOutputs);

    /**
     * Sets the digital outputs; see BaseWriteDigital.
     * @param nOutputs the output bits
     * @return result code
     */
    int WriteDigital(unsigned int nOutputs);

    /**
     * Reads the digital inputs as three groups of eight.
     * @param nInput0 receives bits 0 to 7
     * @param nInput1 receives bits 8 to 15
     * @param nInput2 receives bits 16 to 23. When the gateway sends too little, the groups are taken from
     * what nInput0 held before.
     * @return result code; the outputs are untouched unless it is 0
     */
    int ReadDigitalInput(unsigned int& nInput0, unsigned int& nInput1, unsigned int& nInput2);

    /**
     * Reads all analog values.
     * @param aoValues receives the values behind what it already holds, also when the gateway reports an
     * error but sends values with it
     * @return result code
     * @throws std::out_of_range when the confirmation holds nothing at all, not even a result
     */
    int Read(std::vector<unsigned int>& aoValues);
};

#endif
