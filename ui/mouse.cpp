#include "ui/mouse.h"

mouse::mouse(QWidget *parent) : QWidget(parent) {}
