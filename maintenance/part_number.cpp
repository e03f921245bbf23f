#include "app/database_migrator.h"
#include "maintenance/registration_file.h"
#include "schema/statements.h"

#include <QDir>
#include <QDomElement>
#include <QFileInfo>

QString DatabaseMigrator::readRegistrationPartNumber(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return QString();
    }
    const QDomElement registration =
        parseRegistration(file.read(registrationBytesRead)).documentElement();
    if (registration.tagName() != "LVData") {
        return QString();
    }
    QString base;
    QString suffix;
    for (QDomElement element = registration.firstChildElement(); !element.isNull();
         element = element.nextSiblingElement()) {
        const QString name = element.tagName();
        if (name.compare("PartNumber", Qt::CaseInsensitive) == 0) {
            base = element.text();
        } else if (name.compare("PartNumberSuffix", Qt::CaseInsensitive) == 0) {
            suffix = element.text();
        } else if (name.compare("fieldComputerId", Qt::CaseInsensitive) == 0) {
            m_fieldComputerId = element.text();
        }
    }
    return base + suffix;
}

void DatabaseMigrator::syncPartNumber()
{
    QString filePartNumber;
    QDir directory(QDir::rootPath());
    if (directory.cd("Harlo")) {
        const QString path = directory.absoluteFilePath("registration.xml");
        if (QFileInfo(path).isFile()) {
            filePartNumber = readRegistrationPartNumber(path);
        }
    }
    if (filePartNumber.isEmpty()) {
        return;
    }
    const QString storedPartNumber =
        firstValue("SELECT partNumber FROM registrationInfo").toString();
    if (storedPartNumber.compare(filePartNumber, Qt::CaseInsensitive) == 0) {
        return;
    }
    // The id is used as it came from the file. Without an id the statement fails, which is required.
    executeQuietly(
        QString("UPDATE registrationInfo SET partNumber = '%1' WHERE fieldComputerId = %2")
            .arg(filePartNumber, m_fieldComputerId));
}
