// What a process keeps of its rights while it decodes files that may lie.
#ifndef RASTREL_TOOLS_SANDBOX_H
#define RASTREL_TOOLS_SANDBOX_H

#include <string>
#include <vector>

namespace rastrel::tool {

// From now on this process, the threads and the programs that it starts write, make, rename and remove files
// only where `outputs` go (files or folders, there or to be made: below their folders, or the nearest folder
// above that is there) and in the folder for temporary files. They reach no network, start no programs but
// those by which PDF pages are drawn, and ask the kernel for nothing that reading and writing files does not
// need. Files stay readable. Where the system has a part of this only, it is that part; on systems other than
// Linux it is nothing. To be called before threads are started.
void EnterSandbox(const std::vector<std::string>& outputs);

}  // namespace rastrel::tool

#endif
