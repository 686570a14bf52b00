// tavrokvm-bench [name-substring ...]: runs every registered benchmark, or those whose name
// contains one of the given texts.
#include <QGuiApplication>
#include <QTextStream>

#include <vector>

#include "bench/bench.h"

namespace {
std::vector<BenchCase> &registry()
{
    static std::vector<BenchCase> cases;
    return cases;
}
} // namespace

int registerBench(const char *name, std::function<void()> run)
{
    registry().push_back({name, std::move(run)});
    return int(registry().size());
}

int main(int argc, char **argv)
{
    // Some benchmarks draw pictures; no window is ever shown.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    const QStringList filters = app.arguments().mid(1);
    QTextStream out(stdout);
    int ran = 0;
    for (const BenchCase &bench : registry()) {
        const QString name = QString::fromLatin1(bench.name);
        bool wanted = filters.isEmpty();
        for (const QString &filter : filters)
            wanted |= name.contains(filter);
        if (!wanted)
            continue;
        out << "== " << name << Qt::endl;
        bench.run();
        ++ran;
    }
    if (ran == 0)
        out << "no benchmark matched" << Qt::endl;
    return 0;
}
