#include "library/Uuid.h"

#include <QUuid>

namespace varnel {

std::string newUUIDString() {
    return QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper().toStdString();
}

} // namespace varnel
