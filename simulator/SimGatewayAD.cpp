#include "SimGatewayAD.h"

#include "QuorvelErrorMsg.h"

CSimGatewayAD::CSimGatewayAD() : CSimGateway(eDeviceAD, "AD") {}

CSimGatewayAD::~CSimGatewayAD()
{
    Stop();
}

SSimAnswer CSimGatewayAD::Execute(const SSimRequest& oRequest)
{
    constexpr unsigned char nRead = 0x30;
    if (oRequest.nCommand == nRead)
        return SSimAnswer(eSimResultOk, AnalogValues());
    return CSimGateway::Execute(oRequest);
}
