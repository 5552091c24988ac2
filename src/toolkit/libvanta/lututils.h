#pragma once

#include <string>
#include <string_view>

namespace lumo::utils {

/// Reads colour look-up tables from files people have.
///
/// Two formats, told apart by their words:
/// - a one-dimensional .cube file: LUT_1D_SIZE, values 0.0 to 1.0, TITLE, and DOMAIN_MIN and DOMAIN_MAX or
///   LUT_1D_INPUT_RANGE for the range of inputs that the rows are spread over (0 to 1 without);
/// - a plain text table of whole numbers 0 to 1023.
///
/// A row a line, one number for all three colours or three; "#" begins a comment. Anything else is refused, a
/// three-dimensional .cube among it, and so are files of more than 4 MiB or 65536 rows.
class LUT_Utils
{
public:
    /// Reads the file \a fileName into three planes of \a entries 10-bit values (0..1023).
    ///
    /// \a entriesRead tells how many rows there are. Tables are not stretched: the planes are written only when that
    /// is \a entries. A .cube whose rows are not as many as it says is counted like any other, but never fits.
    /// False with \a error, one line of plain text, for a file that cannot be read or understood.
    ///
    /// Waits for the medium a quarter of a second at most; reading the text takes some milliseconds at worst.
    static bool parse(std::string &fileName, short *red, short *green, short *blue, int entries,
                      int &entriesRead, std::string &error);
    /// The same for the text of a file.
    static bool parseText(std::string_view text, short *red, short *green, short *blue, int entries,
                          int &entriesRead, std::string &error);
};

} // namespace lumo::utils
