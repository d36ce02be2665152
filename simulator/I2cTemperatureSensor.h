/**
 * @file I2cTemperatureSensor.h
 * @brief A digital thermometer.
 */
#ifndef QUORVEL_SIM_I2C_TEMPERATURE_SENSOR_H
#define QUORVEL_SIM_I2C_TEMPERATURE_SENSOR_H

#include "I2cBus.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <mutex>
#include <optional>

/**
 * A thermometer at the slave address 0x90. The first byte written selects a register, further ones are stored
 * in it; what is read is the register last selected, over and over.
 *
 * | register | bytes | content |
 * |---|---|---|
 * | 0 | 2, cannot be written | temperature: eighths of a degree Celsius, signed, in the upper 11 bits |
 * | 1 | 1 | configuration; bit 0 set: shut down, the temperature stands still |
 * | 2, 3 | 2 | lower and upper limit, without effect; 75 and 80 degrees (4B 00, 50 00) at first |
 *
 * All numbers are most significant byte first. A register that there is not, and bytes for which a register
 * has no room, are not acknowledged.
 *
 * The temperature goes from 23 to 27 degrees and back within 30 s, unless it is set. SetTemperature may be
 * called from any thread.
 */
class CI2cTemperatureSensor : public CI2cDevice
{
  public:
    static constexpr std::uint8_t nAddress = 0x90;

    CI2cTemperatureSensor() { Reset(); }

    /// In degrees Celsius, limited to -55 to 125; nothing: it moves by itself again.
    void SetTemperature(std::optional<double> oTemperature);

    bool Select(std::uint8_t nSlaveAddress) override;
    bool Write(std::uint8_t nByte) override;
    std::uint8_t Read() override;
    void PowerCycle() override;

  private:
    void Reset();
    void Refresh();

    std::mutex m_oMutex;
    std::optional<double> m_oSet;
    const std::chrono::steady_clock::time_point m_oStart = std::chrono::steady_clock::now();
    std::array<std::array<std::uint8_t, 2>, 4> m_aanRegisters{};
    std::size_t m_nRegister = 0;
    std::size_t m_nPos = 0; ///< byte of the register read next, or of the transfer written next
};

#endif
