// An empty process linked as the service is: says that it has started, and stays. What the service needs
// beyond it is the service's own.
#include <unistd.h>

int main()
{
    const char started = '.';
    (void)!write(STDOUT_FILENO, &started, 1);
    pause();
}
