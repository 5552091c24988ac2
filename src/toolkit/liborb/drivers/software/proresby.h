#pragma once

namespace ferin {

/// Which codec codes, or decodes, ProRes: the project's own or the codec library's.
enum class ProResBy { Own, Ffmpeg };

} // namespace ferin
