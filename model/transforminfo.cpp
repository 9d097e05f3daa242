#include "model/transforminfo.h"

CTransformationInfo::~CTransformationInfo() = default;
