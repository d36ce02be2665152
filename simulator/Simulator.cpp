#include "Simulator.h"

#include "SimGatewayAD.h"
#include "SimGatewayAWire.h"
#include "SimGatewayDIO.h"
#include "SimGatewaySPI.h"

#include <utility>

CSimulator::CSimulator(std::string strAddress, unsigned nPortIndex, unsigned short nPortBase)
    : m_strAddress(std::move(strAddress)), m_nPortIndex(nPortIndex), m_nPortBase(nPortBase)
{
    m_aoGateways.push_back(std::make_unique<CSimGatewaySPI>());
    m_aoGateways.push_back(std::make_unique<CSimGatewayDIO>());
    m_aoGateways.push_back(std::make_unique<CSimGatewayAD>());
    m_aoGateways.push_back(std::make_unique<CSimGatewayAWire>());
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

unsigned short CSimulator::Port(int nKind) const
{
    return m_nPortBase == 0
               ? static_cast<unsigned short>(0)
               : static_cast<unsigned short>(m_nPortBase + static_cast<unsigned>(nKind) + 100 * m_nPortIndex);
}
