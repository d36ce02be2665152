/**
 * @file SimGatewaySPI.h
 * @brief The simulated SPI gateway with a serial flash on its bus.
 */
#ifndef QUORVEL_SIM_GATEWAY_SPI_H
#define QUORVEL_SIM_GATEWAY_SPI_H

#include "SimGateway.h"
#include "SpiFlash.h"

#include <atomic>

/**
 * Device kind 3. Commands, numbers little-endian:
 *  - 0x07 set globals: baud rate in Hz (4 bytes, 1000 to 50000000), signal level (0 1.8 V, 1 2.5 V, 2 3.3 V,
 * 3 5 V), auxiliary voltage (0 off, 1 3.3 V, 2 5 V), clock mode (0 to 3). Anything else gives 0x20 and
 * changes nothing. Power-on: 1000000, 2, 1, 0.
 *  - 0x08 get globals: the same 7 bytes
 *  - 0x03 transfer: the data is one chip-select frame, the answer the bytes read. No data, or more than fit
 * an answer: 0x20.
 *  - 0x14 sequence: see CSpiSequence; 0x31 when it runs too long
 *
 * The auxiliary voltage feeds the flash: without it every frame gives 0x21. The flash understands clock modes
 * 0 and 3; in the others it reads as 0xFF and does nothing.
 */
class CSimGatewaySPI : public CSimGateway
{
  public:
    CSimGatewaySPI();
    ~CSimGatewaySPI() override;

    CSpiFlash& GetFlash() { return m_oFlash; }
    /// The longest time a sequence may run; 5000 ms at start.
    void SetSequenceLimit(unsigned nTimeMs) { m_nSequenceLimitMs = nTimeMs; }

  protected:
    SSimAnswer Execute(const SSimRequest& oRequest) override;
    void PowerOn() override;

  private:
    struct SRun;

    unsigned char SetGlobals(const std::string& strData);
    std::string GetGlobals() const;
    unsigned char Transfer(const std::string& strWrite, std::string& strRead);
    SSimAnswer StartSequence(const std::string& strBytes);
    SSimAnswer RunSequence(const std::shared_ptr<SRun>& pRun);
    unsigned char Step(SRun& oRun);

    CSpiFlash m_oFlash;
    std::atomic<unsigned> m_nSequenceLimitMs{5000};
    unsigned m_nBaudrate = 0;
    unsigned char m_nSignalLevel = 0;
    unsigned char m_nAuxVoltage = 0;
    unsigned char m_nClockMode = 0;
};

#endif
