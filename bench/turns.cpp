// Times commands beside each other: turns ROUNDS <COMMANDS
//
// A line of COMMANDS: a name, what its time is divided by, the program and its words, parted by tabs. Every
// round runs each of them once, in an order of chance, so that whatever else goes on on the machine meets all
// alike. Prints name, median, least and most, in nanoseconds, parted by tabs. A command whose status is not 0
// ends it all.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <numeric>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace
{

struct Command {
    std::string name;
    double divisor = 1;
    std::vector<std::string> words;
    std::vector<double> took; // nanoseconds
};

} // namespace

static std::vector<Command> read_commands(std::istream &lines)
{
    std::vector<Command> commands;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        Command command;
        std::string word;
        std::getline(words, command.name, '\t');
        std::getline(words, word, '\t');
        command.divisor = std::strtod(word.c_str(), nullptr);
        while (std::getline(words, word, '\t'))
            command.words.push_back(word);
        if (command.words.empty() || !(command.divisor > 0)) {
            fprintf(stderr, "turns: not NAME, DIVISOR, WORDS parted by tabs: %s\n", line.c_str());
            exit(2);
        }
        commands.push_back(command);
    }
    return commands;
}

static void run(Command &command)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO})
        posix_spawn_file_actions_addopen(&actions, fd, "/dev/null", O_RDWR, 0);
    std::vector<char *> arguments;
    arguments.reserve(command.words.size() + 1);
    for (std::string &word : command.words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    pid_t pid = -1;
    int status = -1;
    const auto begin = std::chrono::steady_clock::now();
    if (posix_spawnp(&pid, arguments[0], &actions, nullptr, arguments.data(), environ) == 0)
        waitpid(pid, &status, 0);
    const std::chrono::duration<double, std::nano> took = std::chrono::steady_clock::now() - begin;
    posix_spawn_file_actions_destroy(&actions);
    if (status != 0) {
        fprintf(stderr, "turns: %s: status %d\n", command.name.c_str(), status);
        exit(1);
    }
    command.took.push_back(took.count() / command.divisor);
}

int main(int argc, char **argv)
{
    const long rounds = argc == 2 ? strtol(argv[1], nullptr, 10) : 0;
    if (rounds <= 0) {
        fprintf(stderr, "usage: turns ROUNDS <COMMANDS\n");
        return 2;
    }
    std::vector<Command> commands = read_commands(std::cin);
    std::vector<size_t> order(commands.size());
    std::iota(order.begin(), order.end(), size_t{0});
    std::mt19937 chance{std::random_device{}()};
    for (long round = 0; round < rounds; round++) {
        std::shuffle(order.begin(), order.end(), chance);
        for (const size_t i : order)
            run(commands[i]);
    }
    for (Command &command : commands) {
        std::sort(command.took.begin(), command.took.end());
        printf("%s\t%.0f\t%.0f\t%.0f\n", command.name.c_str(), command.took[command.took.size() / 2],
               command.took.front(), command.took.back());
    }
    return 0;
}
