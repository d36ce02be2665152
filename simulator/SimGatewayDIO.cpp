#include "SimGatewayDIO.h"

#include "QuorvelErrorMsg.h"

CSimGatewayDIO::CSimGatewayDIO() : CSimGateway(eDeviceDIO, "DIO") {}

CSimGatewayDIO::~CSimGatewayDIO()
{
    Stop();
}
