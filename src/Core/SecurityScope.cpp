#include "SecurityScope.h"

#include <QFileInfo>

bool SecurityScope::startAccessing(const QString &path)
{
    return QFileInfo(path).isReadable();
}
