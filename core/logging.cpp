// SPDX-License-Identifier: BSD-3-Clause
#include "logging.h"

#include <cstring>

Q_LOGGING_CATEGORY(lcPlinthd, "plinthd", QtWarningMsg)

namespace Logging {

const char CategoryPrefix[] = "plinthd";

namespace {

bool debugSwitchOn = false;
QLoggingCategory::CategoryFilter previousCategoryFilter = nullptr;

// Called by Qt for every category, when it is made and whenever the rules change.
void plinthCategoryFilter(QLoggingCategory *category)
{
    if (previousCategoryFilter)
        previousCategoryFilter(category);
    if (debugSwitchOn && qstrncmp(category->categoryName(), CategoryPrefix, std::strlen(CategoryPrefix)) == 0) {
        category->setEnabled(QtDebugMsg, true);
        category->setEnabled(QtInfoMsg, true);
    }
}

} // namespace

void installDebugSwitch(bool debugEnabled)
{
    debugSwitchOn = debugEnabled;
    // Installing applies the filter to every existing category at once. Done
    // again, it must not chain the filter to itself.
    const QLoggingCategory::CategoryFilter previous = QLoggingCategory::installFilter(plinthCategoryFilter);
    if (previous != plinthCategoryFilter)
        previousCategoryFilter = previous;
}

} // namespace Logging
