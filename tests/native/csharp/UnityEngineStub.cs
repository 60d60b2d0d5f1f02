// The few UnityEngine names that the Unity package's sample uses, so that
// mono can compile the sample without Unity. Written for the tests; it does
// nothing.
using System;

namespace UnityEngine
{
    public class Object { }
    public class Component : Object { }
    public class Behaviour : Component { }
    public class MonoBehaviour : Behaviour { }

    public static class Debug
    {
        public static void Log(object message) { }
        public static void LogWarning(object message) { }
    }

    public static class Time
    {
        public static float timeScale = 1f;
    }

    public enum KeyCode { F1 = 282 }

    public static class Input
    {
        public static bool GetKeyDown(KeyCode key) { return false; }
    }

    [AttributeUsage(AttributeTargets.Field)]
    public sealed class TooltipAttribute : Attribute
    {
        public TooltipAttribute(string tooltip) { }
    }
}
