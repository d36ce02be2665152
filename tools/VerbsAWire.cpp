#include "Groups.h"

void AddAWire(CTool& /*oTool*/) {}
