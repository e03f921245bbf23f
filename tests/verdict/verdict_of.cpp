// Judges the runs that a test asks about. Each line of input is a request as JSON; each line of
// output is a verdict.

#include "guard/verdict/verdict.h"

#include <QCoreApplication>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTextCodec>

#include <iostream>
#include <string>

namespace
{
QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

std::optional<int> version(const QJsonValue &value)
{
    return value.isDouble() ? std::optional<int>(value.toInt()) : std::nullopt;
}

/// @return the most memory that this process has had, in kibibytes
int peakMemory()
{
    for (const QByteArray &line : contentOf("/proc/self/status").split('\n')) {
        if (line.startsWith("VmHWM:")) {
            return line.mid(6).chopped(3).trimmed().toInt();
        }
    }
    return 0;
}

QJsonObject answer(const QJsonObject &request)
{
    RunToJudge run;
    run.before = request.value("before").toString();
    run.after = request.value("after").toString();
    run.from = version(request.value("from"));
    run.to = version(request.value("to"));
    run.target = request.value("target").toInt();
    run.log = contentOf(request.value("log").toString());
    run.platform = request.value("platform").toString().toUtf8();
    run.scratchDirectory = request.value("scratch").toString();
    for (const QJsonValue script : request.value("scripts").toArray()) {
        run.scripts << contentOf(script.toString());
    }
    for (const QJsonValue code : request.value("accept").toArray()) {
        run.acceptedCodes << code.toString().toLatin1();
    }
    const DatabaseDifferences differences = compareDatabases(run.before, run.after);
    if (!differences.readError.isEmpty()) {
        return {{"readError", differences.readError}};
    }
    Verdict verdict = judge(run, differences, VersionTable(request.value("versions").toString()));
    if (!request.value("notKept").toBool()) {
        verdict.noteKept();
    }
    QJsonObject json = verdict.toJson(!request.value("withoutRows").toBool());
    json.insert("differs", !differences.isEmpty());
    json.insert("lackedRoom", verdict.lackedRoom);
    json.insert("peakMemory", peakMemory());
    json.insert("lines", QJsonArray::fromStringList(verdict.lines()));
    return json;
}
} // namespace

int main(int argc, char **argv)
{
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    const QCoreApplication application(argc, argv);
    std::string line;
    while (std::getline(std::cin, line)) {
        const QJsonObject request =
            QJsonDocument::fromJson(QByteArray::fromStdString(line)).object();
        std::cout << QJsonDocument(answer(request)).toJson(QJsonDocument::Compact).constData()
                  << std::endl;
    }
    return 0;
}
