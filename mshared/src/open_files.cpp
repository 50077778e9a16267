#include "nbx/open_files.h"

nbx::I_OpenFiles* nbx_open_files_1() {
    static nbx::I_OpenFiles& files = nbx::MakeOpenFiles();
    return &files;
}
