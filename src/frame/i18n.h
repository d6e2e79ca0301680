// Message catalogue access: every user-visible text passes through the domain "gatr".
#pragma once

#include <libintl.h>

#define _(text) gettext(text)
// Marks a text for extraction where it is translated later, at the point of use.
#define N_(text) (text)
