/**
 * @file Simulator.h
 * @brief One simulated gateway of every kind, on one address.
 */
#ifndef QUORVEL_SIMULATOR_H
#define QUORVEL_SIMULATOR_H

#include "SimGateway.h"

#include <memory>
#include <string>
#include <vector>

class CSimGatewayI2C;

/** The whole gateway family. Nothing listens before Start. */
class CSimulator
{
  public:
    struct SKind {
        int nKind;           ///< EQuorvelDevice value
        std::string strName; ///< short name, for example "SPI"
        unsigned short nPort;
    };

    /// The port index that Start accepts at most.
    static constexpr unsigned nMaxPortIndex = 99;

    /**
     * @param strAddress where to listen, within 127.0.0.0/8
     * @param nPortIndex 0 to 99
     * @param nPortBase a gateway listens on nPortBase + kind + 100 * nPortIndex (the firmware service, kind 0, as
     * if its kind were 100); with 0 on a port that the system chooses
     */
    explicit CSimulator(std::string strAddress = "127.0.0.1", unsigned nPortIndex = 0,
                        unsigned short nPortBase = 4999);
    ~CSimulator();

    /// Starts all gateways, or none and says why.
    bool Start(std::string& strError);
    void Stop();

    /// The gateway of a kind, null when there is none; the simulator owns it.
    CSimGateway* GetGateway(int nKind) const;
    CSimGatewayI2C& GetI2C() const { return m_oI2C; }
    /// All gateways in the order of their ports.
    const std::vector<std::unique_ptr<CSimGateway>>& GetGateways() const { return m_aoGateways; }
    /// What there is and at which port.
    std::vector<SKind> ListKinds() const;

  private:
    unsigned short Port(int nKind) const;
    template<class TGateway, class... TArguments>
    TGateway& Add(TArguments... arguments);

    std::string m_strAddress;
    unsigned m_nPortIndex;
    unsigned short m_nPortBase;
    std::vector<std::unique_ptr<CSimGateway>> m_aoGateways;
    CSimGatewayI2C& m_oI2C;
};

#endif
