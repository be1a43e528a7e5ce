// Must not compile: see chat_rows_widget_free in CMakeLists.txt.
#include <QtWidgets/QWidget>
