#include "QuorvelClientDIO.h"

CQuorvelClientDIO::CQuorvelClientDIO(int nTimeout)
    : CQuorvelClient(eDeviceDIO, static_cast<unsigned int>(nTimeout))
{
    SetOwnClass(typeid(CQuorvelClientDIO));
}

CQuorvelClientDIO::~CQuorvelClientDIO()
{
    StopReception();
}

int CQuorvelClientDIO::Read(unsigned int& nInputs, unsigned int& nOutputs)
{
    return BaseReadDigital(nInputs, nOutputs);
}

int CQuorvelClientDIO::Write(unsigned int nOutputs)
{
    return BaseWriteDigital(nOutputs);
}
