// Marks the library's external interfaces; everything else is hidden from the dynamic symbol table.
#ifndef HALBD_EXPORT_H
#define HALBD_EXPORT_H

#define HALBD_EXPORT __attribute__((visibility("default")))

#endif  // HALBD_EXPORT_H
