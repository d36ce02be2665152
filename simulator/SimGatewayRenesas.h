/**
 * @file SimGatewayRenesas.h
 * @brief The simulated Renesas programmer with a microcontroller attached.
 */
#ifndef QUORVEL_SIM_GATEWAY_RENESAS_H
#define QUORVEL_SIM_GATEWAY_RENESAS_H

#include "SimGateway.h"

/**
 * Device kind 9. The target has 64 KiB of flash: 256 pages of 256 bytes, 16 blocks of 4 KiB. Commands, numbers
 * little-endian:
 *  - 0x20 init, 0x27 complete: begin and end a run
 *  - 0x22 set baud rate: index (1 byte, 0 to 3)
 *  - 0x21 check ID: 7 bytes
 *  - 0x26 get version: 8 bytes of text
 *  - 0x23 read page: page (2 bytes); answers 256 bytes
 *  - 0x24 erase all, 0x29 erase block: block (2 bytes)
 *  - 0x25 write page: page (2 bytes), 256 bytes; the page must be erased
 *  - 0x28 verify: first and last address (2 bytes each); answers the sum of the bytes, 16 bits
 *
 * Outside a run, or at an unknown baud rate, the target does not answer: 0x20. Whatever touches the flash
 * needs the right ID checked in the same run: 0x21. A restart ends the run; the flash stays.
 */
class CSimGatewayRenesas : public CSimGateway
{
  public:
    static constexpr std::size_t nFlashSize = 65536;

    CSimGatewayRenesas();
    ~CSimGatewayRenesas() override;

    /// The ID that the target wants, 7 bytes; all 0xFF at start.
    void SetID(const std::string& strID);
    /// The flash's content, past the gateway.
    std::string Peek(std::size_t nAddress, std::size_t nLen) const;

  protected:
    SSimAnswer Execute(const SSimRequest& oRequest) override;
    void PowerOn() override;

  private:
    enum class EState { eOff, eRunning, eIdentified };

    SSimAnswer Flash(const SSimRequest& oRequest);
    SSimAnswer Erase(std::size_t nAddress, std::size_t nLen);

    std::string m_strFlash;
    std::string m_strID;
    EState m_eState = EState::eOff;
};

#endif
