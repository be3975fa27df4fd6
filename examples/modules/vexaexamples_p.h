#ifndef VEXAEXAMPLES_P_H
#define VEXAEXAMPLES_P_H

// Not API: shared by the example modules' sources only.

#include <QLoggingCategory>

// Every diagnostic of the example modules; debug lines are shown by default
// (QT_LOGGING_RULES="vexa.examples.debug=false" hides them).
Q_DECLARE_LOGGING_CATEGORY(lcExamples)

#endif // VEXAEXAMPLES_P_H
