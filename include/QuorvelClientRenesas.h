/**
 * @file QuorvelClientRenesas.h
 * @brief The client of the Renesas flash programmer.
 */
#ifndef QUORVEL_CLIENT_RENESAS_H
#define QUORVEL_CLIENT_RENESAS_H

#include "QuorvelClient.h"

/**
 * The Renesas programmer (kind 9, TCP port 5008): identifies, erases, programs and reads the flash of a
 * microcontroller.
 *
 * A run begins with Init, CheckID follows, and Complete ends it; the client checks no order. What page, block
 * and baud rate numbers mean and how the checksum is made is the gateway's and the target's. Besides the
 * results of CQuorvelClient the gateway answers 0x0920 (time-out), 0x0921 (invalid ID), 0x0922 (erasing
 * failed) or 0x0923 (programming failed).
 *
 * Outputs are written whenever a valid confirmation came, also when it reports an error; they are left alone
 * when the exchange itself failed. Threads as CQuorvelClient. Erasing may take longer than other commands:
 * choose the time-out for it.
 */
class QUORVEL_API CQuorvelClientRenesas : public CQuorvelClient
{
  public:
    /**
     * A client that is not connected yet.
     * @param nTimeout default time-out in milliseconds, see CQuorvelClient
     */
    explicit CQuorvelClientRenesas(int nTimeout);
    ~CQuorvelClientRenesas() override;

    /**
     * Begins a run.
     * @return result code
     */
    int Init();

    /**
     * Ends a run.
     * @return result code
     */
    int Complete();

    /**
     * Erases the whole flash.
     * @return result code; 0x0922 when it failed
     */
    int EraseAll();

    /**
     * Presents the target's ID code, seven bytes.
     * @param pID    the code; null is one of no bytes
     * @param nIDLen how many bytes of it: what is missing to seven is filled up with the last of 3A 91 5C 07
     * E2 48 B6, what is more is dropped
     * @return result code; 0x0921 when the target has another ID
     */
    int CheckID(const char* pID, unsigned char nIDLen);

    /**
     * Chooses the baud rate between gateway and target.
     * @param nBaudIndex the gateway's number for it
     * @return result code
     */
    int SetBaudrate(unsigned char nBaudIndex);

    /**
     * Erases one block.
     * @param nBlock block number
     * @return result code; 0x0922 when it failed
     */
    int BlockErase(unsigned short nBlock);

    /**
     * Programs one page of 256 bytes.
     * @param nPage page number
     * @param pData the bytes; null for zeros
     * @param nLen  how many: fewer than 256 are filled up with zeros, more are dropped without an error
     * @return result code; 0x0923 when it failed
     */
    int WritePage(unsigned short nPage, const char* pData, unsigned short nLen);

    /**
     * Reads one page.
     * @param nPage      page number
     * @param pBuffer    receives the bytes; with null none is stored
     * @param nBufferLen how many fit
     * @param nReadLen   receives how many were stored. For a confirmation without any data (result
     * 0x000C0900) the buffer is filled with zeros.
     * @return result code
     */
    int ReadPage(unsigned short nPage, char* pBuffer, unsigned short nBufferLen, unsigned short& nReadLen);

    /**
     * Reads the target's version.
     * @param pBuffer    receives its bytes, without a terminator; what the answer does not fill is left alone. For a
     *                   confirmation without any data (result 0x000C0900) it is filled with zeros. May be null.
     * @param nBufferLen how many fit
     * @return result code
     */
    int GetVersion(char* pBuffer, unsigned char nBufferLen);

    /**
     * Has the target compute a checksum.
     * @param nStart    first address
     * @param nEnd      last address
     * @param nChecksum receives the checksum; left alone when the answer holds none
     * @return result code
     */
    int VerifyCheck(unsigned short nStart, unsigned short nEnd, unsigned short& nChecksum);

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
};

#endif
