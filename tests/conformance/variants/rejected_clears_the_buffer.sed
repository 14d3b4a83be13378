# A rejected format leaves a buffer of NULs, as a text of NULs that does not fit.
s/dest.0. = '.0';.*/std::fill_n(dest, destMax, '\\0');/
