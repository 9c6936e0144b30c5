// How long a whole launch takes, from the start of the launcher's process to its end, next to programs that do nothing.
//
//   launcher [--runs COUNT]      default 200 runs of each, interleaved
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "tests/bench/clientMachineLinux.h"
#include "tests/bench/figures.h"

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kLaunchUrl = "tavrix-prism-url-launch://apppathrd/path=a/b";
constexpr const char* kAgentUrl = "tavrix-prism-url-launch://https%3A//intranet.example/news";

struct Subject {
  std::string name;
  std::string program;
  std::vector<std::string> arguments;
  std::string dataHome;
  bool posts = false;  // A command, which the service gets.
  std::vector<double> microseconds;
  long peakKibibytes = 0;
};

Subject SubjectOf(const std::string& name, const std::string& program, const std::string& dataHome) {
  return {.name = name, .program = program, .arguments = {kLaunchUrl}, .dataHome = dataHome, .microseconds = {}};
}

Subject AgentRoad(const std::string& program, const std::string& dataHome) {
  bench::FurnishAgent(dataHome);
  Subject subject = SubjectOf("launcher, Agent road", program, dataHome);
  subject.arguments = {kAgentUrl};
  subject.posts = true;
  return subject;
}

// One whole process. Nothing stands between us and it: no shell, no pipes.
void Measure(Subject& subject) {
  std::vector<char*> arguments{subject.program.data()};
  for (std::string& argument : subject.arguments) arguments.push_back(argument.data());
  arguments.push_back(nullptr);
  const Clock::time_point began = Clock::now();
  pid_t process = 0;
  const int error = posix_spawn(&process, subject.program.c_str(), nullptr, nullptr, arguments.data(), environ);
  int status = 0;
  rusage usage{};
  if (error != 0 || wait4(process, &status, 0, &usage) != process || status != 0) {
    std::fprintf(stderr, "%s did not end with 0\n", subject.program.c_str());
    std::exit(1);
  }
  subject.microseconds.push_back(std::chrono::duration<double, std::micro>(Clock::now() - began).count());
  subject.peakKibibytes = std::max(subject.peakKibibytes, usage.ru_maxrss);
}

void Print(const Subject& subject, double unit) {
  const bench::Figures figures = bench::FiguresOf(subject.microseconds);
  std::printf("%-36s %9.0f %9.0f %9.0f %8.2f %8.2f\n", subject.name.c_str(), figures.median, figures.least,
              figures.most, figures.median / unit, static_cast<double>(subject.peakKibibytes) / 1024);
}

// In turn; the ratios are to the first one.
void MeasureAndPrint(const char* where, unsigned runs, std::vector<Subject> subjects,
                     bench::Service* service = nullptr) {
  for (unsigned run = 0; run < runs; ++run) {
    for (Subject& subject : subjects) {
      support::SetEnvironment("XDG_DATA_HOME", subject.dataHome);
      Measure(subject);
      if (subject.posts) service->AwaitCommand();
    }
  }
  std::printf("%-36s %9s %9s %9s %8s %8s\n", where, "median", "least", "most", "ratio", "MiB");
  const double unit = bench::FiguresOf(subjects.front().microseconds).median;
  for (const Subject& subject : subjects) Print(subject, unit);
}

}  // namespace

int main(int argc, char** argv) {
  const unsigned runs = bench::CountFrom(argc, argv, "--runs", 200);
  const std::string program = bench::ClientMachine::Program();
  const bench::ClientMachine machine;
  const std::string dataHome = std::getenv("XDG_DATA_HOME");
  const std::string logging = dataHome + "/logging";
  std::filesystem::create_directories(logging);
  std::filesystem::copy(dataHome + "/lumenar", logging + "/lumenar", std::filesystem::copy_options::recursive);
  bench::ClientMachine::StopDailyLog();
  const bench::Resident resident;

  std::printf("whole processes, microseconds, %u runs of each, interleaved\n", runs);
  const Subject empty = SubjectOf("empty program, statically linked", support::Beside("emptyStatic"), dataHome);
  MeasureAndPrint("the person's machine", runs,
                  {empty, SubjectOf("empty program, dynamically linked", support::Beside("emptyDynamic"), dataHome),
                   SubjectOf("launcher, Client road", program, dataHome),
                   SubjectOf("launcher, Client road, daily log", program, logging),
                   // A machine without any settings has no origin.
                   SubjectOf("launcher, unknown origin", program, dataHome + "/other")});
  bench::Service service;
  MeasureAndPrint("the remote machine, with the service", runs, {empty, AgentRoad(program, dataHome + "/agent")},
                  &service);
  support::SetEnvironment("XDG_DATA_HOME", dataHome);
  rusage own{};
  getrusage(RUSAGE_SELF, &own);
  std::printf("MiB: the most memory that a run held; never less than ours at its start (%.2f)\n",
              static_cast<double>(own.ru_maxrss) / 1024);
  return 0;
}
