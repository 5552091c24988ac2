#include "libprores/kernels.h"

namespace prores {

const Kernels *avx2Kernels()
{
    return nullptr;
}

} // namespace prores
