#include "I2cTemperatureSensor.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace
{

enum : std::size_t { eTemperature = 0, eConfiguration = 1 };
constexpr std::uint8_t nShutDown = 0x01;
constexpr double nPeriod = 30; // seconds

std::size_t Length(std::size_t nRegister)
{
    return nRegister == eConfiguration ? 1 : 2;
}

} // namespace

void CI2cTemperatureSensor::SetTemperature(std::optional<double> oTemperature)
{
    const std::lock_guard oLock(m_oMutex);
    m_oSet = oTemperature;
}

bool CI2cTemperatureSensor::Select(std::uint8_t nSlaveAddress)
{
    const std::lock_guard oLock(m_oMutex);
    if ((nSlaveAddress & 0xFE) != nAddress)
        return false;
    m_nPos = 0;
    return true;
}

bool CI2cTemperatureSensor::Write(std::uint8_t nByte)
{
    const std::lock_guard oLock(m_oMutex);
    if (m_nPos == 0) {
        if (nByte >= m_aanRegisters.size())
            return false;
        m_nRegister = nByte;
    } else {
        if (m_nRegister == eTemperature || m_nPos > Length(m_nRegister))
            return false;
        Refresh();
        m_aanRegisters[m_nRegister][m_nPos - 1] = nByte;
    }
    m_nPos++;
    return true;
}

std::uint8_t CI2cTemperatureSensor::Read()
{
    const std::lock_guard oLock(m_oMutex);
    if (m_nPos == 0) // both bytes are of the same moment
        Refresh();
    const std::uint8_t nByte = m_aanRegisters[m_nRegister][m_nPos];
    m_nPos = (m_nPos + 1) % Length(m_nRegister);
    return nByte;
}

void CI2cTemperatureSensor::PowerCycle()
{
    const std::lock_guard oLock(m_oMutex);
    Reset();
}

void CI2cTemperatureSensor::Reset()
{
    m_aanRegisters = {{{0, 0}, {0, 0}, {0x4B, 0}, {0x50, 0}}};
    m_nRegister = 0;
    m_nPos = 0;
}

/// Measures, unless shut down.
void CI2cTemperatureSensor::Refresh()
{
    if ((m_aanRegisters[eConfiguration][0] & nShutDown) != 0)
        return;
    const std::chrono::duration<double> nUp = std::chrono::steady_clock::now() - m_oStart;
    const double nMoving = 25 + 2 * std::sin(2 * std::numbers::pi * nUp.count() / nPeriod);
    const auto nEighths =
        static_cast<unsigned>(std::lround(std::clamp(m_oSet.value_or(nMoving), -55.0, 125.0) * 8));
    m_aanRegisters[eTemperature] = {static_cast<std::uint8_t>(nEighths >> 3 & 0xFF),
                                    static_cast<std::uint8_t>(nEighths << 5 & 0xE0)};
}
