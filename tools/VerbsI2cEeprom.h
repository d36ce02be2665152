// The group `i2c eeprom`.
#ifndef QUORVEL_TOOL_VERBS_I2C_EEPROM_H
#define QUORVEL_TOOL_VERBS_I2C_EEPROM_H

#include "Tool.h"

/// Adds the verbs for serial memories to the group i2c.
void AddI2cEeprom(CTool& oTool, CLI::App& oI2c);

#endif
