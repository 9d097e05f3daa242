#include "model/serializedata.h"

CSerializeData::~CSerializeData() = default;
