// Tells whether a descriptor was left open.
#ifndef TESTS_SUPPORT_DESCRIPTORS_H
#define TESTS_SUPPORT_DESCRIPTORS_H

#include <fcntl.h>
#include <unistd.h>

// The number that the next descriptor gets.
inline int NextDescriptor()
{
    const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(fd);
    return fd;
}

#endif
