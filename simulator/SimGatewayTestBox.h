/**
 * @file SimGatewayTestBox.h
 * @brief The simulated I/O, power-supply and relay boxes of a test system.
 */
#ifndef QUORVEL_SIM_GATEWAY_TEST_BOX_H
#define QUORVEL_SIM_GATEWAY_TEST_BOX_H

#include "SimGateway.h"

#include <array>

/**
 * Device kinds 11 (I/O), 12 (power supply) and 17 (relays): 255 values of 16 bits, little-endian, which read
 * back as they were set and are 0 after power-on. A command that sets them replaces as many as it holds, from
 * the first on; one that reads them answers all. Half a value, or more than 255, give 0xFF.
 *
 *  - 0x10 set, 0x11 get values: kinds 11 and 12
 *  - 0x20 set, 0x21 get power: kinds 11 and 17
 *  - 0x12 switch a relay: number (1 byte, 0 to 31) and 0 or 1, anything else gives 0xFF; kind 17. The relays
 *    are the digital outputs, too.
 */
class CSimGatewayTestBox : public CSimGateway
{
  public:
    static constexpr std::size_t nChannels = 255;

    /// nKind: 11, 12 or 17.
    explicit CSimGatewayTestBox(int nKind);
    ~CSimGatewayTestBox() override;

  protected:
    SSimAnswer Execute(const SSimRequest& oRequest) override;
    void PowerOn() override;

  private:
    SSimAnswer SetRelay(const std::string& strData);

    std::array<std::string, 2> m_astrArrays; ///< values, power: as they are sent
};

#endif
