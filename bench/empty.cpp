// A process that does nothing, with the libraries of one of the two programs to load. Given the path of another one,
// it starts that beside itself and waits for it, as the application does with the TV's services.
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

int main(int count, char** words) {
    if (count < 2) {
        return 0;
    }
    pid_t other = 0;
    int status = 0;
    const bool isStarted = posix_spawnp(&other, words[1], nullptr, nullptr, words + 1, environ) == 0;
    return isStarted && waitpid(other, &status, 0) == other && status == 0 ? 0 : 1;
}
