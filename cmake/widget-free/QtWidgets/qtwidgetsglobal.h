// Stands in for QtWidgets' own global header, which every QtWidgets header
// includes first, on the include path of code that must stay widget-free.
#error "widget-free code: QtWidgets is not available here (QtCore and QtGui only)"
