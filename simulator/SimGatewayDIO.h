/**
 * @file SimGatewayDIO.h
 * @brief The simulated digital I/O gateway: the common commands are all it has.
 */
#ifndef QUORVEL_SIM_GATEWAY_DIO_H
#define QUORVEL_SIM_GATEWAY_DIO_H

#include "SimGateway.h"

/** Device kind 5: 32 digital outputs, looped back to 32 inputs. */
class CSimGatewayDIO : public CSimGateway
{
  public:
    CSimGatewayDIO();
    ~CSimGatewayDIO() override;
};

#endif
