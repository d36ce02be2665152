#include "Simulator.h"

#include "SimGatewayAD.h"
#include "SimGatewayAWire.h"
#include "SimGatewayCAN.h"
#include "SimGatewayDIO.h"
#include "SimGatewayFirmware.h"
#include "SimGatewayI2C.h"
#include "SimGatewayRenesas.h"
#include "SimGatewaySPI.h"
#include "SimGatewayTestBox.h"
#include "SimGatewayTestCOM.h"

#include "QuorvelErrorMsg.h"

#include <utility>

CSimulator::CSimulator(std::string strAddress, unsigned nPortIndex, unsigned short nPortBase)
    : m_strAddress(std::move(strAddress)),
      m_nPortIndex(nPortIndex),
      m_nPortBase(nPortBase),
      m_oI2C(Add<CSimGatewayI2C>())
{
    Add<CSimGatewayCAN>();
    Add<CSimGatewaySPI>();
    Add<CSimGatewayDIO>();
    Add<CSimGatewayAD>();
    Add<CSimGatewayRenesas>();
    Add<CSimGatewayTestBox>(eDeviceTestSystemIO);
    Add<CSimGatewayTestBox>(eDeviceTestSystemPWR);
    Add<CSimGatewayTestCOM>();
    Add<CSimGatewayAWire>();
    Add<CSimGatewayTestBox>(eDeviceTestSystemRelay);
    Add<CSimGatewayFirmware>();
}

CSimulator::~CSimulator()
{
    Stop();
}

bool CSimulator::Start(std::string& strError)
{
    if (m_nPortIndex > nMaxPortIndex) {
        strError =
            "port index " + std::to_string(m_nPortIndex) + " is above " + std::to_string(nMaxPortIndex);
        return false;
    }
    for (const auto& pGateway : m_aoGateways) {
        if (!pGateway->Start(m_strAddress, Port(pGateway->GetKind()), &strError)) {
            Stop();
            return false;
        }
    }
    return true;
}

void CSimulator::Stop()
{
    for (const auto& pGateway : m_aoGateways)
        pGateway->Stop();
}

CSimGateway* CSimulator::GetGateway(int nKind) const
{
    for (const auto& pGateway : m_aoGateways) {
        if (pGateway->GetKind() == nKind)
            return pGateway.get();
    }
    return nullptr;
}

std::vector<CSimulator::SKind> CSimulator::ListKinds() const
{
    std::vector<SKind> aoKinds;
    for (const auto& pGateway : m_aoGateways)
        aoKinds.push_back({pGateway->GetKind(), pGateway->GetName(),
                           pGateway->GetPort() != 0 ? pGateway->GetPort() : Port(pGateway->GetKind())});
    return aoKinds;
}

template<class TGateway, class... TArguments>
TGateway& CSimulator::Add(TArguments... arguments)
{
    auto pGateway = std::make_unique<TGateway>(arguments...);
    TGateway& oGateway = *pGateway;
    m_aoGateways.push_back(std::move(pGateway));
    return oGateway;
}

unsigned short CSimulator::Port(int nKind) const
{
    if (m_nPortBase == 0)
        return 0;
    const unsigned nOffset =
        nKind == 0 ? 100 : static_cast<unsigned>(nKind); // the firmware service is at 5099
    return static_cast<unsigned short>(m_nPortBase + nOffset + 100 * m_nPortIndex);
}
