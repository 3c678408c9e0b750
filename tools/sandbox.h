// What a process keeps of its rights while it decodes files that may lie.
#ifndef RASTREL_TOOLS_SANDBOX_H
#define RASTREL_TOOLS_SANDBOX_H

#include <string>
#include <vector>

namespace rastrel::tool {

// From now on this process, the threads and the programs that it starts write, make, rename and remove files
// only where `outputs` go (files or folders, there or to be made: below their folders, or the nearest folder
// above that is there) and in the folder for temporary files. They reach no network, no other process, and
// ask the kernel for nothing that reading and writing files does not need. Files stay readable, and modes and
// times of what their user owns can be changed. Where the kernel has a part of this only, it is that part; on
// systems other than Linux it is nothing. To be called before threads are started.
void EnterSandbox(const std::vector<std::string>& outputs);

}  // namespace rastrel::tool

#endif
