#include "I2cBus.h"

#include <utility>

void CI2cBus::SetDevices(std::vector<std::shared_ptr<CI2cDevice>> aoDevices)
{
    Reset();
    m_aoDevices = std::move(aoDevices);
}

void CI2cBus::Start()
{
    m_pSelected = nullptr;
    m_eState = EState::eStarted;
}

bool CI2cBus::Send(std::uint8_t nByte)
{
    if (m_eState == EState::eStarted) {
        m_eState = EState::eIdle;
        for (const auto& pDevice : m_aoDevices) {
            if (!pDevice->Select(nByte))
                continue;
            m_pSelected = pDevice.get();
            m_eState = (nByte & 1) != 0 ? EState::eReading : EState::eWriting;
            return true;
        }
        return false;
    }
    return m_eState == EState::eWriting && m_pSelected->Write(nByte);
}

std::uint8_t CI2cBus::Get(bool bAcknowledge)
{
    if (m_eState != EState::eReading)
        return 0xFF;
    if (!bAcknowledge)
        m_eState = EState::eIdle;
    return m_pSelected->Read();
}

void CI2cBus::Stop()
{
    if (m_pSelected != nullptr)
        m_pSelected->Stop();
    Reset();
}

void CI2cBus::Reset()
{
    m_pSelected = nullptr;
    m_eState = EState::eIdle;
}

void CI2cBus::PowerCycle()
{
    Reset();
    for (const auto& pDevice : m_aoDevices)
        pDevice->PowerCycle();
}
