// The program's version, for people and programs that have no more than the file: `strings` finds
// it, and `veskctl version`. The program itself never reads it, so the compiler and the linker are
// told to keep it.

namespace {

[[gnu::used, gnu::retain]] constinit const char kVersion[] = "@(#)vesk_h264 " VESK_VERSION;

} // namespace
