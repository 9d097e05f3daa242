#include "model/emuldata.h"

CEmulation::~CEmulation() = default;
