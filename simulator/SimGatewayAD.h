/**
 * @file SimGatewayAD.h
 * @brief The simulated analog and digital gateway.
 */
#ifndef QUORVEL_SIM_GATEWAY_AD_H
#define QUORVEL_SIM_GATEWAY_AD_H

#include "SimGateway.h"

/** Device kind 7: the common commands, and 0x30, which reads all analog values without the leading count. */
class CSimGatewayAD : public CSimGateway
{
  public:
    CSimGatewayAD();
    ~CSimGatewayAD() override;

  protected:
    SSimAnswer Execute(const SSimRequest& oRequest) override;
};

#endif
