#include "libprores/kernels.h"

namespace prores {

const Kernels *avx512Kernels()
{
    return nullptr;
}

} // namespace prores
