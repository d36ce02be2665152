#include "Groups.h"

void AddCanOpen(CTool& /*oTool*/) {}
