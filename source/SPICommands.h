// The SPI commands of the C interface, for the client behind any handle: that interface does not ask what
// kind of client it is. CQuorvelClientSPI offers the same commands as its members.
#ifndef QUORVEL_SPI_COMMANDS_H
#define QUORVEL_SPI_COMMANDS_H

#include "QuorvelClient.h"

namespace NSPICommands
{

int SetGlobals(CQuorvelClient& oClient, unsigned int nBaudrate, unsigned char nSigLevel,
               unsigned char nAuxVoltage, unsigned char nClockMode);
int GetGlobals(CQuorvelClient& oClient, unsigned int& nBaudrate, unsigned char& nSigLevel,
               unsigned char& nAuxVoltage, unsigned char& nClockMode);
int DataReq(CQuorvelClient& oClient, const char* pBufWrite, unsigned short nBufWriteLen, char* pBufRead,
            unsigned short nBufReadLen);
int SequenceReq(CQuorvelClient& oClient, const char* pSequence, unsigned short nLen, short* pnID);
int SequenceGetCnf(CQuorvelClient& oClient, short nID, char* pBufRead, unsigned short nBufReadLen);

} // namespace NSPICommands

#endif
