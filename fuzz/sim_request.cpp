// Bytes from a client, for every gateway of the simulator, over a real connection. The first byte chooses the gateway,
// or has the rest read as a fault plan. Whatever is sent, all that comes back are telegrams.

#include "../tests/SimClient.h"
#include "FaultPlan.h"
#include "FuzzFile.h"
#include "SimTelegram.h"
#include "Simulator.h"

#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pBytes, std::size_t nCount)
{
    static CSimulator s_oSimulator("127.0.0.1", 0, 0);
    static const bool s_bStarted = [] {
        std::string strError;
        for (const auto& pGateway : s_oSimulator.GetGateways()) {
            pGateway->SetMaxConnections(1000);
            pGateway->SetRestartTime(0);
        }
        return s_oSimulator.Start(strError);
    }();
    Require(s_bStarted);
    if (nCount == 0)
        return 0;
    const std::string strRest(reinterpret_cast<const char*>(pBytes) + 1, nCount - 1);
    const auto& aoGateways = s_oSimulator.GetGateways();
    if (pBytes[0] >= 0x80) {
        std::string strError;
        CFaultPlan oPlan;
        Require(CFaultPlan::Parse(strRest, oPlan, strError) == strError.empty());
        return 0;
    }
    const auto& pGateway = aoGateways[pBytes[0] % aoGateways.size()];
    const int nKind = pGateway->GetKind();
    std::unique_ptr<simtest::CClient> pClient;
    Require(WaitUntil([&] { // it may be about to restart
        pClient = std::make_unique<simtest::CClient>(*pGateway);
        return pClient->IsConnected();
    }));
    pClient->Send(strRest);
    pClient->EndSending();
    const std::string strAnswers = pClient->ReadAll();
    CSimTelegramCutter oCutter;
    oCutter.Append(strAnswers.data(), strAnswers.size());
    SSimTelegram oTelegram;
    std::string strProblem;
    CSimTelegramCutter::EResult eResult{};
    while ((eResult = oCutter.Next(oTelegram, strProblem)) == CSimTelegramCutter::EResult::eTelegram)
        Require((oTelegram.nCmdCode & 0x8000) != 0 || oTelegram.nCmdCode >> 8 == nKind);
    Require(eResult == CSimTelegramCutter::EResult::eNone); // a restart may cut the last one off
    return 0;
}
