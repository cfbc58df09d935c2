package test.exchange;

import android.os.PersistableBundle;

// An argument of each kind that the compiler's C++ takes through a parcel.
interface IExchange {
    String join(String first, @nullable String second, @utf8InCpp String third);
    PersistableBundle wrap(in PersistableBundle bundle, out boolean[] flags);
    void fail(int error);
}
