# Turns the comments of the headers into comments that Doxygen reads.
1s|^// (.*)|/// \\file\n/// \1|
s|^( *)// |\1/// |
s|^( *)//$|\1///|
s|([^ ]) +// |\1  ///< |
