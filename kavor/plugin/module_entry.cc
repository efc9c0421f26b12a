// The loadable module is kavor_core linked whole; this file gives the module target a
// translation unit of its own and intentionally defines nothing.
