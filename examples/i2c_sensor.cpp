// Reads a thermometer on the bus of an I2C gateway.
//
//     i2c_sensor HOST
//
// The thermometer is of a common kind: slave address 0x90, register 0 the temperature, register 3 the upper
// limit, both signed, most significant byte first, in 1/256 degrees. Returns 0 when everything could be read.

#include "QuorvelClientI2C.h"

#include <chrono>
#include <cstdio>
#include <thread>

namespace
{

constexpr unsigned short SENSOR = 0x90; // 8-bit form, bit 0 clear

double ToDegrees(const char* pBytes)
{
    const int nValue = static_cast<signed char>(pBytes[0]) * 256 + static_cast<unsigned char>(pBytes[1]);
    return nValue / 256.0;
}

int Failed(const char* pWhat, int nRC)
{
    std::printf("%s: code 0x%08X, %s\n", pWhat, static_cast<unsigned int>(nRC),
                CQuorvelClient::GetErrorMsg(nRC).c_str());
    return 1;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::printf("usage: %s HOST\n", argv[0]);
        return 1;
    }

    // Port 0 is the port of the kind; the time-out of two seconds holds for every call; 100 means 100 kHz.
    CQuorvelClientI2C oGateway(2000);
    int nRC = oGateway.Connect(argv[1], 0, 1, true);
    if (nRC == 0)
        nRC = oGateway.Open(100);
    if (nRC != 0)
        return Failed("connect", nRC);

    // Select a register and read it, in one telegram: a write step and a read step (bit 0 of the address).
    char cRegister = 3;
    char acLimit[2] = {};
    CQuorvelClientI2C::I2CCommand aoSteps[] = {{SENSOR, 1, &cRegister}, {SENSOR | 1, 2, acLimit}};
    unsigned short nStep = 0;
    nRC = oGateway.WriteSequence(aoSteps, 2, nStep);
    if (nRC != 0)
        return Failed("limit", nRC);
    std::printf("upper limit %.1f degrees\n", ToDegrees(acLimit));

    // The register stays selected, so from now on reading is enough.
    const char cTemperature = 0;
    unsigned short nPosition = 0;
    nRC = oGateway.Write(SENSOR, &cTemperature, 1, nPosition);
    int nReadings = 0;
    for (; nRC == 0 && nReadings < 5; ++nReadings) {
        if (nReadings > 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(250));
        char acTemperature[2] = {};
        unsigned short nRead = 0;
        nRC = oGateway.Read(SENSOR, acTemperature, 2, nRead);
        if (nRC == 0)
            std::printf("%.3f degrees\n", ToDegrees(acTemperature));
    }
    if (nRC != 0)
        return Failed("temperature", nRC);
    std::printf("%d readings\n", nReadings);

    // A write of no bytes asks whether somebody is there.
    nRC = oGateway.Write(0x50, nullptr, 0, nPosition);
    if (nRC != 0x0120)
        return 1;
    Failed("slave address 0x50", nRC);
    return 0;
}
