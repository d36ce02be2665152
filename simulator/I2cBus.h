/**
 * @file I2cBus.h
 * @brief An I2C bus, condition by condition and byte by byte, and what a chip on it has to do.
 */
#ifndef QUORVEL_SIM_I2C_BUS_H
#define QUORVEL_SIM_I2C_BUS_H

#include <cstdint>
#include <memory>
#include <vector>

/** A chip on a CI2cBus, which calls it from one thread at a time. */
class CI2cDevice
{
  public:
    virtual ~CI2cDevice() = default;
    CI2cDevice(const CI2cDevice&) = delete;
    CI2cDevice& operator=(const CI2cDevice&) = delete;

    /**
     * The first byte behind a start condition: the slave address, with bit 0 set when it is to be read from.
     * Whatever the chip has taken since an earlier one, without a stop condition, it forgets.
     * @return whether the chip acknowledges. It must not when the address is not its own.
     */
    virtual bool Select(std::uint8_t nAddress) = 0;
    /// A byte written to the selected chip; returns whether it acknowledges.
    virtual bool Write(std::uint8_t nByte) = 0;
    /// A byte read from the selected chip.
    virtual std::uint8_t Read() = 0;
    /// The stop condition at the end of a transfer with the selected chip.
    virtual void Stop() {}
    /// The supply goes and comes back.
    virtual void PowerCycle() {}

  protected:
    CI2cDevice() = default;
};

/** The bus with its chips. Not to be used from several threads at once. */
class CI2cBus
{
  public:
    /// Replaces all chips, and resets the bus.
    void SetDevices(std::vector<std::shared_ptr<CI2cDevice>> aoDevices);

    /// A start condition, repeated or not.
    void Start();
    /// Sends a byte, behind a start condition an address; returns whether it was acknowledged.
    bool Send(std::uint8_t nByte);
    /// Reads a byte and acknowledges it or not, which ends the reading; 0xFF when no chip sends.
    std::uint8_t Get(bool bAcknowledge);
    void Stop();
    /// Gives the transfer under way up, without a stop condition.
    void Reset();
    /// Resets the bus and takes the supply away from all chips and gives it back.
    void PowerCycle();

  private:
    enum class EState { eIdle, eStarted, eWriting, eReading };

    std::vector<std::shared_ptr<CI2cDevice>> m_aoDevices;
    EState m_eState = EState::eIdle;   ///< eIdle also when no chip takes part
    CI2cDevice* m_pSelected = nullptr; ///< the chip that gets the stop condition
};

#endif
