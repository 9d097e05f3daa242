#include "model/portioinfo.h"

CPortIOInfo::~CPortIOInfo() = default;
