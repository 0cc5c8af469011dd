#include "commontypes.h"

namespace CommonTypes {

void registerTypes()
{
    qRegisterMetaType<CpStateMode>("CommonTypes::CpStateMode");
}

} // namespace CommonTypes
