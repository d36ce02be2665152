// The gateway simulator as a program.

#include "FaultPlan.h"
#include "SimGatewayI2C.h"
#include "Simulator.h"
#include "StandardDescriptors.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>
#include <exception>
#include <iostream>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace
{

enum EExit { eExitOk = 0, eExitFailure = 1, eExitUsage = 2, eExitPort = 4 };

/// Splits "KIND:PLAN" at the colon and looks the kind up by number or name; without a kind the plan is for
/// all.
bool ApplyFault(const CSimulator& oSimulator, const std::string& strOption,
                std::map<CSimGateway*, std::string>& aoPlans, std::string& strError)
{
    const auto nColon = strOption.find(':');
    const std::string strKind = nColon == std::string::npos ? "" : strOption.substr(0, nColon);
    const std::string strPlan = nColon == std::string::npos ? strOption : strOption.substr(nColon + 1);
    bool bKnown = false;
    for (const auto& pGateway : oSimulator.GetGateways()) {
        if (nColon != std::string::npos && strKind != pGateway->GetName() &&
            strKind != std::to_string(pGateway->GetKind()))
            continue;
        bKnown = true;
        std::string& strAll = aoPlans[pGateway.get()];
        strAll += (strAll.empty() ? "" : ";") + strPlan;
        if (!pGateway->SetFaultPlan(strAll, strError))
            return false;
    }
    if (!bKnown)
        strError = "'" + strKind + "' is not a kind of gateway (see --list)";
    return bKnown;
}

int Run(int argc, char** argv)
{
    CLI::App oApp{"Simulates Quorvel gateways, each at the port of its kind.", "quorvel-sim"};
    std::string strAddress = "127.0.0.1";
    unsigned nPortIndex = 0;
    unsigned nMaxConnections = 8;
    std::string strMemories = CSimGatewayI2C::pDefaultMemories;
    bool bList = false;
    bool bVerbose = false;
    std::vector<std::string> astrFaults;
    oApp.add_option("--address", strAddress, "Address to listen on, within 127.0.0.0/8")
        ->capture_default_str();
    oApp.add_option("--port-index", nPortIndex, "Listen on 4999 + kind + 100 * INDEX")
        ->capture_default_str()
        ->check(CLI::Range(0U, CSimulator::nMaxPortIndex));
    oApp.add_option("--max-connections", nMaxConnections, "Clients that each gateway serves at once")
        ->capture_default_str()
        ->check(CLI::Range(1U, 1000U));
    oApp.add_option(
            "--fault", astrFaults,
            "[KIND:]PLAN: what goes wrong on every connection, for one kind (name or number) or for all; "
            "may be given several times")
        ->allow_extra_args(false);
    oApp.add_option("--i2c-memories", strMemories,
                    "TYPE@CHIP,...: the serial EEPROMs on the bus of the I2C gateway; empty: none")
        ->capture_default_str();
    oApp.add_flag("--list", bList, "List the gateways and their ports, then exit");
    oApp.add_flag("--verbose", bVerbose, "Report every client on stderr");
    oApp.set_version_flag("--version", std::string("quorvel-sim ") + QUORVEL_SIM_VERSION);
    oApp.footer("A fault plan is a list of steps separated by ';'. A step concerns every answer on the "
                "connection, or "
                "only\nthose that follow '@', counted from 1: badcrc@2, drop@2-4, delay=100@5-\n" +
                CFaultPlan::Grammar());
    try {
        oApp.parse(argc, argv);
    } catch (const CLI::ParseError& oError) {
        return oApp.exit(oError) == 0 ? eExitOk : eExitUsage;
    }
    if (!CSimGateway::IsLoopback(strAddress)) {
        std::cerr << "quorvel-sim: --address: '" << strAddress
                  << "' is not within 127.0.0.0/8; the simulator is not for other networks\n";
        return eExitUsage;
    }

    // Every thread inherits the mask; the signals are taken by sigwait below.
    sigset_t oSignals;
    ::sigemptyset(&oSignals);
    ::sigaddset(&oSignals, SIGINT);
    ::sigaddset(&oSignals, SIGTERM);
    ::pthread_sigmask(SIG_BLOCK, &oSignals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);

    CSimulator oSimulator(strAddress, nPortIndex);
    if (bList) {
        for (const auto& oKind : oSimulator.ListKinds())
            std::cout << "kind " << oKind.nKind << "  " << oKind.strName << "  port " << oKind.nPort << "\n";
        return eExitOk;
    }
    std::string strError;
    if (!oSimulator.GetI2C().SetMemories(strMemories, strError)) {
        std::cerr << "quorvel-sim: --i2c-memories: " << strError << "\n";
        return eExitUsage;
    }
    std::map<CSimGateway*, std::string> aoPlans;
    for (const auto& strFault : astrFaults) {
        if (!ApplyFault(oSimulator, strFault, aoPlans, strError)) {
            std::cerr << "quorvel-sim: --fault: " << strError << "\n";
            return eExitUsage;
        }
    }
    std::mutex oMutexLog;
    for (const auto& pGateway : oSimulator.GetGateways()) {
        pGateway->SetMaxConnections(nMaxConnections);
        if (bVerbose)
            pGateway->SetLog([&oMutexLog](const std::string& strLine) {
                const std::lock_guard oLock(oMutexLog);
                std::cerr << strLine + "\n";
            });
    }
    if (!oSimulator.Start(strError)) {
        std::cerr << "quorvel-sim: " << strError << "\n";
        return eExitPort;
    }
    std::string strReady = "quorvel-sim " QUORVEL_SIM_VERSION " ready on " + strAddress + ":";
    for (const auto& oKind : oSimulator.ListKinds())
        strReady += " " + oKind.strName + "=" + std::to_string(oKind.nPort);
    std::cout << strReady << std::endl;

    int nSignal = 0;
    ::sigwait(&oSignals, &nSignal);
    oSimulator.Stop();
    return eExitOk;
}

} // namespace

int main(int argc, char** argv)
{
    TakeStandardDescriptors();
    try {
        return Run(argc, argv);
    } catch (const std::exception& oError) {
        std::fprintf(stderr, "quorvel-sim: %s\n", oError.what());
        return eExitFailure;
    }
}
