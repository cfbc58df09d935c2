package android.os;

parcelable PersistableBundle cpp_header "binder/PersistableBundle.h";
