// Reads tags for the browser, which starts it and gives it a socket in place of the standard input.

#include <sys/resource.h>
#include <unistd.h>

#include "tags/TagReaders.h"

int main()
{
    const rlimit none {};
    setrlimit(RLIMIT_CORE, &none); // files that end it are nothing to keep
    TagReaders::serve(STDIN_FILENO);
    return 0;
}
