#pragma once

#include <string>

namespace lumo::utils {

/// Reads colour look-up tables from files people have.
class LUT_Utils
{
public:
    /// Reads the file \a fileName into three planes of \a entries 10-bit values (0..1023).
    ///
    /// Two formats: a one-dimensional .cube file (LUT_1D_SIZE, values 0.0 to 1.0 over DOMAIN_MIN to
    /// DOMAIN_MAX), and a plain text table of one row a line with one or three whole numbers 0..1023;
    /// "#" begins a comment. \a entriesRead tells how many rows there are, whether they fit or not; rows
    /// behind \a entries are counted and left out. False with \a error for a file that cannot be read, is
    /// larger than 4 MiB, or holds anything else (a three-dimensional .cube among them).
    static bool parse(std::string &fileName, short *red, short *green, short *blue, int entries,
                      int &entriesRead, std::string &error);
};

} // namespace lumo::utils
