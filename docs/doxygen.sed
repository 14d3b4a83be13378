# What Doxygen is to see of a header: line for line the same, with a few marks.

# The first comment, after the include guard, is the file's.
3s|^$|/// \\file|
# What holds of threads, ownership, errors and before a call stands out, a paragraph each.
s,^( *///) (Thread safety|Ownership|Errors|REQUIRES):,\1 <p>**\2:**,
# What is deleted is nothing to document.
/= delete;$/s/.*//
# The operations that all records of commands have: the header says once what they do.
/^class EMSUTIL_API Ems(NameAnd|NVTP|General)/,/^};/{
    s|^    Ems[A-Za-z]+\(\);$|& ///< Every text and list is empty.|
    s|^    Ems[A-Za-z]+\(const .*;$|& ///< A deep copy.|
    s|^    Ems.* operator=\(.*;$|& ///< A deep copy.|
    s|^    std::string ToString\(\);$|& ///< The text form.|
    s|^    static .* FromString\(.*;$|& ///< A new empty record: the text is not read.|
}
