// tavrokvm-boxsim: the box on a pseudo-terminal, for tests and for trying the console without
// hardware. One JSON object per line on standard output tells what the box received and did.

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <sched.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "boxoptions.h"
#include "boxrunner.h"

int main(int argc, char *argv[])
{
    // SIGINT and SIGTERM arrive through a descriptor, so the event loop ends cleanly and the
    // link is removed; SIGUSR1 makes the box stop or resume answering. Blocked before any
    // thread exists, so every thread inherits the mask.
    sigset_t handledSignals;
    sigemptyset(&handledSignals);
    sigaddset(&handledSignals, SIGINT);
    sigaddset(&handledSignals, SIGTERM);
    sigaddset(&handledSignals, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &handledSignals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);

    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("tavrokvm-boxsim"));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Simulated KVM box on a pseudo-terminal; prints one JSON event per line.\n"
                       "SIGUSR1 makes it stop answering vendor commands, and resume."));
    parser.addHelpOption();
    addBoxOptions(parser);
    parser.process(app);

    BoxOptions options;
    QString error;
    if (!readBoxOptions(parser, options, error)) {
        std::fprintf(stderr, "tavrokvm-boxsim: %s\n", qPrintable(error));
        return 2;
    }

    const int signalFd = signalfd(-1, &handledSignals, SFD_CLOEXEC | SFD_NONBLOCK);
    if (signalFd < 0) {
        std::perror("tavrokvm-boxsim: signalfd");
        return 1;
    }

    BoxRunner runner(options);
    QObject::connect(&runner, &BoxRunner::finished, &app, &QCoreApplication::exit,
                     Qt::QueuedConnection);
    QSocketNotifier signalNotifier(signalFd, QSocketNotifier::Read);
    QObject::connect(&signalNotifier, &QSocketNotifier::activated, &app, [&] {
        signalfd_siginfo info;
        bool stop = false;
        while (::read(signalFd, &info, sizeof info) == sizeof info) {
            if (info.ssi_signo == SIGUSR1)
                runner.toggleReplies();
            else
                stop = true;
        }
        if (stop) {
            runner.stop();
            app.exit(0);
        }
    });

    // A real box reads the line and polls the target on a controller of its own; the simulation
    // shares the computer's cores with the console under test. Ahead of the other processes in
    // the scheduler, reports are stamped when they arrive, not when a busy machine gets round
    // to reading them. Real-time scheduling needs privileges; a raised priority is the fallback.
    if (options.hidPollMs > 0) {
        sched_param realTime{};
        realTime.sched_priority = 1;
        if (::sched_setscheduler(0, SCHED_FIFO, &realTime) != 0 &&
            ::setpriority(PRIO_PROCESS, 0, -10) != 0)
            std::fprintf(stderr,
                         "tavrokvm-boxsim: cannot raise the priority (%s); under load the "
                         "simulated polling may miss reports a real box would see\n",
                         std::strerror(errno));
    }
    if (!runner.start(error)) {
        std::fprintf(stderr, "tavrokvm-boxsim: %s\n", qPrintable(error));
        ::close(signalFd);
        return 1;
    }
    const int code = app.exec();
    runner.stop();
    ::close(signalFd);
    return code;
}
