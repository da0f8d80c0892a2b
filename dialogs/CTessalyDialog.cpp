#include "dialogs/CTessalyDialog.h"

CTessalyDialog::CTessalyDialog(QWidget* parent) : QDialog(parent) {}
