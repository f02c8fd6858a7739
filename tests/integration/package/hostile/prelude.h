// The macros that a host has before it includes the library: Qt's keywords and Xlib's names.
#define signals public
#define slots
#define emit
#define foreach(variable, container) for (variable : container)
#define forever for (;;)

#define Above 0
#define Absolute 0
#define Always 2
#define Below 1
#define Bool int
#define BottomIf 3
#define Complex 0
#define Convex 2
#define CurrentTime 0L
#define DestroyAll 0
#define DisplayString(display) "display"
#define Expose 12
#define False 0
#define GrayScale 1
#define InputFocus 1L
#define KeyPress 2
#define None 0L
#define NoSymbol 0L
#define NoValue 0
#define Nonconvex 1
#define Opposite 4
#define ParentRelative 1L
#define PointerRoot 1L
#define StaticColor 2
#define Status int
#define Success 0
#define True 1
#define Unsorted 0
#define XValue 1
#define YSorted 1

// GLib's, and those of hosts that are old.
#define ABS(a) (((a) < 0) ? -(a) : (a))
#define CLAMP(x, low, high) (x)
#define FALSE (0)
#define MAX(a, b) (((a) > (b)) ? (a) : (b))
#define MIN(a, b) (((a) < (b)) ? (a) : (b))
#define TRUE (!FALSE)
