// Documents the benchmarks read, generated in memory as UTF-8 bytes: the program's own kinds
// of file (a small configuration, a large language file) and the shapes that stress a reader
// (comments, very wide, very deep, many attributes, long text values).
#pragma once

#include <cstddef>
#include <string>

namespace bench_docs {

// A configuration file of about 2 KB, with a declaration, as the program writes it.
std::string Configuration();
// A language file of about `bytes`: Languages > Language > section > group > text, 3 to 5
// levels, one element per line, tab indentation, CR LF, non-ASCII texts in several scripts.
std::string LanguageFile(std::size_t bytes);
// The language file shape with a comment before every entry: about half the bytes.
std::string CommentHeavy(std::size_t bytes);
// One root with `siblings` short children.
std::string Wide(std::size_t siblings);
// `levels` nested elements around one short text.
std::string Deep(std::size_t levels);
// About `bytes` of elements with ten attributes each.
std::string AttributeHeavy(std::size_t bytes);
// About `bytes` made of a few elements whose text values are 256 KB long.
std::string LongText(std::size_t bytes);

}  // namespace bench_docs
